#pragma once

#include <sys/types.h>

// Who may do what while a process crashes: of the threads that crash one is dealt with, and of the dumps one
// is written at a time. All of it is forgotten in the child of a fork, which may crash, or dump itself, in
// its own right.
//
// A child of vfork is a guest: another process in this memory. Its crash is its own, and nothing of it may
// stay behind.
//
// All but `PrepareCrashTurns` runs on the crashed thread. No heap, no lock.

namespace ZBase::os {

/// Call first; false if there is no memory.
bool PrepareCrashTurns();

/// Whether the calling process is a guest.
bool IsGuest();

/// Claims the crash of the process, or of a guest, for the calling thread. False if it is another's; for a
/// guest after a bounded wait.
bool TakeCrash();

/// The crash was not the end of the process.
void LeaveCrash();

/// Waits, for a bounded time, while the crash of another thread is dealt with. It ends the process, or is
/// left to someone who may not.
void WaitForCrash();

/// Whether the crash of some thread is being dealt with.
bool IsCrashing();

/// Claims the writing of a dump, after a bounded wait; false if another one goes on all the same.
bool TakeDump();
void LeaveDump();

}  // namespace ZBase::os
