#pragma once

namespace ZBase::os {

unsigned int CurrentProcessId();
unsigned long CurrentThreadId();

/// Lets another thread run.
void YieldThread();

/// Suspends the calling thread; 0 lets another thread run.
void SleepMilliseconds(unsigned long milliseconds);

}  // namespace ZBase::os
