#pragma once

namespace ZBase::os {

unsigned int CurrentProcessId();
unsigned long CurrentThreadId();

/// The same number, cached per thread: for paths where a system call is too slow.
unsigned long RememberedThreadId();

/// The same number, or 0 if it is not cached yet.
#if defined(_WIN32)
unsigned long AlreadyRememberedThreadId();  // it stands in the thread's own memory from the first
#else
namespace detail {
// In the static TLS block, without the function call that thread-local variables of a shared library cost.
[[gnu::tls_model("initial-exec")]] extern thread_local constinit unsigned long tThreadId;
}  // namespace detail
inline unsigned long AlreadyRememberedThreadId() {
    return detail::tThreadId;
}
#endif

/// Whether no thread has this id, here or in a process that shares this one's memory.
bool IsThreadGone(unsigned long thread);

/// Yields to another thread.
void YieldThread();

/// Suspends the calling thread; 0 yields to another thread.
void SleepMilliseconds(unsigned long milliseconds);

}  // namespace ZBase::os
