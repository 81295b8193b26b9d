#pragma once

#include <Base/crash/CrashReportSender.h>
#include <Base/platform/os/crash/CrashDumps.h>

namespace ZBase::detail {

/// Stores the crash keys and the addresses of the servers for the crash path: in pages of their own, not on
/// the heap. Without memory the old ones stay.
void PrepareCrashReport();

/// The same for one key that was set since, by its `ReportName`. Both are called by one thread at a time.
void PrepareCrashKey(const std::string& name, const std::string& value);

/// Starts the sender's process for the left dumps of this directory, in the background. Waits until it has
/// started.
void SendLeftDumps(const std::string& directory);

// These run on the crashed thread's alternate stack. No heap, no lock.

/// Returns the dump's part of the report: the prepared crash keys, marked as those of a hanging process if it
/// is on demand, the last words of the calling thread if not, and the notes.
os::DumpContent BeginReport(os::EDumpCause cause);

/// Ends the use of `BeginReport`'s result.
void EndReport();

/// Sends a dump with the crash keys, by the sender's process.
ReportResult SendPreparedReport(const os::TriedDump& dump);

}  // namespace ZBase::detail
