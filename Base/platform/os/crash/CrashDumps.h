#pragma once

#include <cstddef>

namespace ZBase::os {

// Dumps of this process: when it crashes, and on demand. All of them go to one directory, each named by a
// GUID and ".dmp" and readable by the owner only.

/// Memory that a dump has in addition to the stacks.
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

/// The result of an attempt to dump.
struct TriedDump {
    const char* path;  // of its file, UTF-8
    bool succeeded;
    bool onDemand;
    const char* elsewhere;  // its directory and why, unless that is the configured one; else null
};

/// What is done with dumps. Both run on the crashed thread, which may have little stack left, or on the
/// thread that wants a dump. No heap, no lock.
struct DumpUser {
    /// Called before a dump; returns what it is to contain.
    DumpContent (*begin)(EDumpCause cause);

    /// Called after a dump. After a crash it returns whether the process ends here (true), or the system's
    /// own handling follows (false).
    bool (*end)(const TriedDump& dump);
};

/// The limits of a dump, and which crashes are dumped. With too little space for all, the stack of the thread
/// that crashed is whole and the outer frames of the others are cut.
struct DumpLimits {
    unsigned int seconds;
    unsigned int megabytes;  // up to 2000
    bool asksEarlier;        // an earlier handler of faults is called first
};

class DumpHandler;

/// From now on a crash of the process is dumped; the calling thread gets its crash stack. A relative
/// directory starts at the current one; if it is not writable and can't be made again, the process's
/// temporary directory gets the dump. Null if there is no memory. The newest of several handlers gets a
/// crash, and only one crash is handled: a thread that crashes meanwhile waits for the end of the process.
DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpUser user, DumpLimits limits);

/// Ends the handling of crashes by `newest` and those created before it. A crash that is being reported is
/// completed first, and ends the process.
void DestroyDumpHandlers(DumpHandler* newest);

/// Dumps this process, which continues. Returns the result of `DumpUser::end`; false if there was no dump,
/// and during a crash. One call at a time.
bool WriteDump(DumpHandler* handler);

/// Whether this process runs in the memory of another one, where a system has such processes (a child of
/// vfork): its crash is dumped, but it can't have a dump on demand. False without a handler.
bool SharesMemory();

/// Gives the calling thread, until it ends, the stack on which a stack overflow can be reported, and lets it
/// take faults, if the system has a thread that may not. False if there is no memory for the stack.
bool InstallCrashStack();

/// Call before the first `CopyAbortMessage`.
void PrepareAbortMessage();

/// The message of the system's libraries when they aborted the process, as of an assertion or of a damaged
/// heap: at most `size - 1` octets, and a zero. Returns their number, 0 without a message. Runs on the
/// crashed thread. No heap, no lock.
std::size_t CopyAbortMessage(char* text, std::size_t size);

// These run on the crashed thread. No heap, no lock.

/// Removes a dump.
void DeleteDump(const char* path);

/// Marks a dump that stays as sent, at its end, which readers ignore.
void MarkDumpSent(const char* path);

inline constexpr char kSentMark[17] = "\nZBase: is sent\n";

inline constexpr char kDumpEnding[] = ".dmp";

}  // namespace ZBase::os
