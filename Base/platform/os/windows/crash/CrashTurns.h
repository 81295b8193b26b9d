#pragma once

// Who may do what while the process crashes: of the threads that crash one is dealt with, and of the dumps
// one is written at a time. All of it runs on the crashed thread too. No heap, no lock.

namespace ZBase::os {

/// Claims the crash of the process for the calling thread; false if it is another's, or was dealt with.
bool TakeCrash();

/// The crash was not the end of the process.
void LeaveCrash();

/// Waits, for a bounded time, while the crash of another thread is dealt with. It ends the process, or is
/// left to someone who may not.
void WaitForCrash();

/// Whether the crash of some thread is being dealt with.
bool IsCrashing();

/// Whether that is the calling thread.
bool IsCrashOfThisThread();

/// Claims the writing of a dump, after a bounded wait; false if another one goes on all the same.
bool TakeDump();
void LeaveDump();

}  // namespace ZBase::os
