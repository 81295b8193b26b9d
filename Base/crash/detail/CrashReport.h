#pragma once

#include <Base/crash/CrashReportSender.h>
#include <Base/platform/os/CrashDumps.h>

namespace ZBase::detail {

/// Puts the crash keys and the addresses of the servers where the path of a crash finds them: in pages of
/// their own, away from the heap. When there is no memory, what was prepared before stays.
void PrepareCrashReport();

/// The same for one key that has been set since, by its `ReportName`. Both are called by one thread at a
/// time.
void PrepareCrashKey(const std::string& name, const std::string& value);

/// Has the sender's process send what was left in this directory, in the background. Waits until that is on
/// its way.
void SendLeftDumps(const std::string& directory);

// These run on the crashed thread's alternate stack. No heap, no lock.

/// Gives what a dump holds for its report: the crash keys that were prepared, marked as those of a hanging
/// process if it is on demand, the last words of the calling thread if not, and the notes.
os::DumpContent BeginReport(os::EDumpCause cause);

/// What `BeginReport` gave is read no more.
void EndReport();

/// Sends a dump with the crash keys, by the sender's process.
ReportResult SendPreparedReport(const os::TriedDump& dump);

}  // namespace ZBase::detail
