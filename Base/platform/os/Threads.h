#pragma once

namespace ZBase::os {

unsigned int CurrentProcessId();
unsigned long CurrentThreadId();

/// The same number, which the thread remembers: for paths that can't afford to ask the system.
unsigned long RememberedThreadId();

/// The same number, or 0 if the thread has not been asked before.
#if defined(_WIN32)
unsigned long AlreadyRememberedThreadId();  // it stands in the thread's own memory from the first
#else
namespace detail {
// Read where the thread's own memory starts, without the call that thread-local variables of a shared library
// cost.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit unsigned long tThreadId;
}  // namespace detail
inline unsigned long AlreadyRememberedThreadId() {
    return detail::tThreadId;
}
#endif

/// Yields to another thread.
void YieldThread();

/// Suspends the calling thread; 0 yields to another thread.
void SleepMilliseconds(unsigned long milliseconds);

}  // namespace ZBase::os
