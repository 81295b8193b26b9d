#pragma once

#include <sys/types.h>

// Mutual exclusion while a process crashes: only one of several crashing threads is handled, and only one
// dump is written at a time. The state is reset in a forked child, which may crash, or dump itself, on its
// own.
//
// A child of vfork is a guest: another process in this memory. Its crash is its own, and must leave nothing
// in that memory.
//
// All but `PrepareCrashTurns` runs on the crashed thread. No heap, no lock.

namespace ZBase::os {

/// Call first; false if there is no memory.
bool PrepareCrashTurns();

/// Whether the calling process is a guest.
bool IsGuest();

/// Claims the crash of the process, or of a guest, for the calling thread. False if another has it; for a
/// guest after a bounded wait.
bool TakeCrash();

/// The crash did not end the process.
void LeaveCrash();

/// Waits, for a bounded time, while the crash of another thread is handled. That ends the process, or is left
/// to a handler that may not.
void WaitForCrash();

/// Whether the crash of some thread is being handled.
bool IsCrashing();

/// Claims the writing of a dump, after a bounded wait; false if another one is still being written.
bool TakeDump();
void LeaveDump();

}  // namespace ZBase::os
