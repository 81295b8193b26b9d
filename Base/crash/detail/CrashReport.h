#pragma once

#include <Base/crash/CrashReportSender.h>

namespace ZBase::detail {

/// Puts the crash keys and the addresses of the servers where the path of a crash finds them: in pages of
/// their own, away from the heap. When there is no memory, what was prepared before stays.
void PrepareCrashReport();

/// Has the dumps of the present handler hold the crash keys that were prepared.
void PutCrashKeysIntoDumps();

/// Marks the dumps that are written as those of a hanging process, or no longer.
void MarkHanging(bool hanging);

/// Sends a dump with the crash keys, by the sender's process.
/// Runs on the crashed thread's alternate stack. No heap, no lock.
ReportResult SendPreparedReport(const char* dump);

}  // namespace ZBase::detail
