#pragma once

#include <windows.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include <Base/platform/os/windows/crash/DumpFile.h>
#include <Base/platform/os/windows/crash/SenderProcess.h>

namespace ZBase::os {

class DumpHandler;

using SignalHandler = void(__cdecl*)(int);
using InvalidParameterHandler = void(__cdecl*)(const wchar_t*, const wchar_t*, const wchar_t*, unsigned int,
                                               uintptr_t);

/// A thread that writes dumps where there is no sender, and its present request.
struct InsideDump {
    HANDLE thread;
    HANDLE isWanted;
    HANDLE isDone;
    HANDLE file;
    DumpRequest request;
    bool written;
};

/// All that is set aside in a process for its crash and its dumps. It is made of zeros and has no destructor,
/// so that it is valid for a crash before the first constructor and behind the last destructor; what it
/// points to is never released, but for the handlers and the sender of a dump on demand.
struct CrashEquipment {
    static constexpr std::size_t kLongestPath = 0x8000;

    // Of the handlers of exceptions and signals.
    std::atomic<DumpHandler*> newest;  // owned
    std::atomic<bool> isInstalled;
    std::atomic<bool> asksEarlier;
    LPTOP_LEVEL_EXCEPTION_FILTER filterBefore;  // the host's, while ours are installed
    SignalHandler abortBefore;
    InvalidParameterHandler invalidBefore;

    // Who may do what while the process crashes.
    std::atomic<DWORD> crash;  // the thread that crashed
    std::atomic<bool> isLeft;
    std::atomic<DWORD> dump;  // the thread whose dump is being written

    // Who writes a dump, and what makes its name differ from those of other processes.
    SenderProcess senderForCrash;
    SenderProcess senderForDemand;
    std::atomic<DWORD> dumper;  // the thread whose dump a sender has written
    std::atomic<SenderProcess*> senderOfDumper;
    InsideDump inside;
    std::uint64_t seed;

    wchar_t path[kLongestPath];  // one thread at a time writes a dump
};

static_assert(std::is_trivially_destructible_v<CrashEquipment>);

/// CrashDumps.cpp defines it.
extern CrashEquipment gEquipment;

}  // namespace ZBase::os
