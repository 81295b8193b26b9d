#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// The system's id of this process.
ZBASE_API unsigned int GetCurrentProcessID();

/// The system's id of the calling thread; the two are one function.
ZBASE_API unsigned long GetCurrentThreadID();
ZBASE_API unsigned long GetCurrentThreadIDNative();

/// Gives up the rest of the time slice.
ZBASE_API void YieldToAnotherThread();

/// Suspends the calling thread; with 0 it gives up the rest of the time slice.
ZBASE_API void Sleep(unsigned long milliseconds);

}  // namespace ZBase
