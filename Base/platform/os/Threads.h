#pragma once

namespace ZBase::os {

unsigned int CurrentProcessId();
unsigned long CurrentThreadId();

/// The same number, which the thread remembers: for paths that can't afford to ask the system.
unsigned long RememberedThreadId();

/// Lets another thread run.
void YieldThread();

/// Suspends the calling thread; 0 lets another thread run.
void SleepMilliseconds(unsigned long milliseconds);

}  // namespace ZBase::os
