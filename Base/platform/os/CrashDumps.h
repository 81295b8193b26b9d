#pragma once

#include <cstddef>

namespace ZBase::os {

// Dumps of this process: when it crashes, and on demand. All of them go to one directory, each named by a
// GUID and ".dmp" and readable by the owner only.

/// Called after a dump with the path of its file, and whether it was written. After a crash it answers
/// whether the process ends here (true), or whether the system's own handling follows (false). Runs on the
/// crashed thread, on its alternate stack where it has one. No heap, no lock.
using DumpCallback = bool (*)(const char* path, bool succeeded);

class DumpHandler;

/// From now on a crash of the process is dumped; the calling thread gets its crash stack. A relative
/// directory is meant from the present one on. Null if there is no memory. The newest of several handlers
/// takes a crash, and no crash is taken twice.
DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpCallback callback);

/// Ends the handling of crashes: `newest` goes, and those that were made before it. A crash that is being
/// reported comes to its end first.
void DestroyDumpHandlers(DumpHandler* newest);

/// Dumps this process, which goes on. Gives what the callback answers, false if there was no dump. One call
/// at a time.
bool WriteDump(DumpHandler* handler);

/// Has each dump hold `size` octets of memory from `start` on, until they are dropped.
void AddDumpMemory(DumpHandler* handler, void* start, std::size_t size);
void DropDumpMemory(DumpHandler* handler, void* start);

/// Gives the calling thread, until it ends, the stack on which a stack overflow can be reported. False if
/// there is no memory for it.
bool InstallCrashStack();

/// Removes a dump. Runs on the crashed thread. No heap, no lock.
void DeleteDump(const char* path);

}  // namespace ZBase::os
