#pragma once

#include <cstddef>

namespace ZBase::os {

// Dumps of this process: when it crashes, and on demand. All of them go to one directory, each named by a
// GUID and ".dmp" and readable by the owner only.

/// Memory that a dump holds beside the stacks.
struct DumpMemory {
    const void* start;
    std::size_t size;  // octets; 0 for none
};

inline constexpr std::size_t kDumpMemories = 3;

struct DumpContent {
    DumpMemory parts[kDumpMemories];
};

/// Why a dump is made.
enum class EDumpCause { eDemand, eFault, eAbort };

/// A dump that was tried.
struct TriedDump {
    const char* path;  // of its file, UTF-8
    bool succeeded;
    bool onDemand;
    const char* elsewhere;  // where it lies and why, unless that is simply the directory; else null
};

/// What is done with dumps. Both run on the crashed thread, which may have little stack left, or on the
/// thread that wants a dump. No heap, no lock.
struct DumpUser {
    /// Called before a dump; gives what it shall hold.
    DumpContent (*begin)(EDumpCause cause);

    /// Called after a dump. After a crash it answers whether the process ends here (true), or whether the
    /// system's own handling follows (false).
    bool (*end)(const TriedDump& dump);
};

/// What a dump may take, and which crashes are dumped. With too little room for all, the stack of the thread
/// that crashed is whole and the others are cut behind their innermost frames.
struct DumpLimits {
    unsigned int seconds;
    unsigned int megabytes;  // up to 2000
    bool asksEarlier;        // a handler of faults that was there before is asked first
};

class DumpHandler;

/// From now on a crash of the process is dumped; the calling thread gets its crash stack. A relative
/// directory is meant from the present one on; where it can't be written to, not even made again, the
/// process's temporary directory takes the dump. Null if there is no memory. The newest of several handlers
/// takes a crash, and no crash is taken twice: a thread that crashes beside another waits for the end of the
/// process.
DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpUser user, DumpLimits limits);

/// Ends the handling of crashes: `newest` goes, and those that were made before it. A crash that is being
/// reported comes to its end first, and the process with it.
void DestroyDumpHandlers(DumpHandler* newest);

/// Dumps this process, which goes on. Gives what `DumpUser::end` answers; false if there was no dump, and
/// beside a crash. One call at a time.
bool WriteDump(DumpHandler* handler);

/// Whether this process runs in the memory of another one, where a system has such processes (a child of
/// vfork): its crash is dumped, but it can't have a dump on demand. False without a handler.
bool SharesMemory();

/// Gives the calling thread, until it ends, the stack on which a stack overflow can be reported, and lets it
/// take faults, if the system has a thread that may not. False if there is no memory for the stack.
bool InstallCrashStack();

/// Call before the first `CopyAbortMessage`.
void PrepareAbortMessage();

/// What the system's libraries said when they aborted the process, as of an assertion or of a damaged heap:
/// at most `size - 1` octets, and a zero. Gives their number, 0 if they said nothing. Runs on the crashed
/// thread. No heap, no lock.
std::size_t CopyAbortMessage(char* text, std::size_t size);

// These run on the crashed thread. No heap, no lock.

/// Removes a dump.
void DeleteDump(const char* path);

/// Notes at the end of a dump that stays that its server has it. Readers pass over what stands there.
void MarkDumpSent(const char* path);

inline constexpr char kSentMark[17] = "\nZBase: is sent\n";

inline constexpr char kDumpEnding[] = ".dmp";

}  // namespace ZBase::os
