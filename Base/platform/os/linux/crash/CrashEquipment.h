#pragma once

#include <Base/platform/os/linux/crash/CrashReserve.h>

#include <signal.h>
#include <atomic>
#include <type_traits>

namespace ZBase::os {

class DumpHandler;
struct CrashTurns;
struct HelperProgram;
struct HelperLaunch;
struct AbortMessage;

/// All that is set aside in a process for its crash and its dumps. It is made of zeros and has no destructor,
/// so that a signal handler finds it valid whatever has been installed, ended, unloaded or forked; what it
/// points to is never released, but for the handlers and the reserve.
struct CrashEquipment {
    // Of the handlers of signals.
    std::atomic<DumpHandler*> newest;  // owned
    bool isInstalled;
    std::atomic<bool> asksEarlier;
    struct sigaction before[NSIG];  // the host's, while ours are installed
    CrashReserve reserve;

    // Who may do what while a process crashes.
    CrashTurns* turns;

    // The sender of reports. The program is that of the latest installation.
    std::atomic<const HelperProgram*> sender;
    std::atomic<HelperLaunch*> launches;

    // Where the C library keeps the text of its last abort.
    std::atomic<const AbortMessage* const volatile*> abortMessage;
};

static_assert(std::is_trivially_destructible_v<CrashEquipment>);

/// CrashDumps.cpp defines it.
extern CrashEquipment gEquipment;

}  // namespace ZBase::os
