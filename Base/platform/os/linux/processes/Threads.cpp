#include <Base/platform/os/processes/Threads.h>

#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <ctime>

namespace ZBase::os {

thread_local constinit unsigned long detail::tThreadId = 0;

namespace {

constinit std::atomic<bool> sForkHandled{false};

}  // namespace

unsigned int CurrentProcessId() {
    return static_cast<unsigned int>(getpid());
}

unsigned long CurrentThreadId() {
    return static_cast<unsigned long>(gettid());
}

unsigned long RememberedThreadId() {
    if (detail::tThreadId != 0) return detail::tThreadId;
    // A forked child's thread has another id. No guarded static: a child could wait for ever for a thread in
    // it. Two handlers do the same as one.
    if (!sForkHandled && pthread_atfork(nullptr, nullptr, [] { detail::tThreadId = 0; }) == 0)
        sForkHandled = true;
    const unsigned long thread = CurrentThreadId();
    if (sForkHandled) detail::tThreadId = thread;
    return thread;
}

// Threads share the id space of processes.
bool IsThreadGone(unsigned long thread) {
    const int before = errno;
    const bool isGone = kill(static_cast<pid_t>(thread), 0) != 0 && errno == ESRCH;
    errno = before;
    return isGone;
}

void YieldThread() {
    sched_yield();
}

void SleepMilliseconds(unsigned long milliseconds) {
    if (milliseconds == 0) {
        YieldThread();
        return;
    }
    timespec left{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000 * 1000000)};
    while (nanosleep(&left, &left) != 0 && errno == EINTR) {
    }
}

}  // namespace ZBase::os
