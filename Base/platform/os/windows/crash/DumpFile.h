#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

#include <Base/platform/os/crash/CrashDumps.h>

namespace ZBase::os {

/// What the writing of a dump needs to know.
struct DumpRequest {
    std::uint32_t process;
    std::uint32_t thread;                // that crashed, or wants the dump
    std::uint64_t pointers;              // its EXCEPTION_POINTERS, an address in its process
    std::uint64_t mostOctets;            // beyond which the stacks of other threads are left out
    std::uint64_t start[kDumpMemories];  // of what the dump shall hold, in the process that writes
    std::uint64_t size[kDumpMemories];
};

/// The streams of a dump that hold `DumpContent`: the first of this number, the others of the next ones.
inline constexpr std::uint32_t kFirstMemoryStream = 0x5A42'0001;

/// Loads what writes dumps; false if the system has none. Call before the first `WriteDumpFile`.
bool PrepareDumpFile();

/// Writes a dump into a file that is open for writing. Of another process it takes none of its heap or locks.
bool WriteDumpFile(HANDLE process, HANDLE file, const DumpRequest& request);

}  // namespace ZBase::os
