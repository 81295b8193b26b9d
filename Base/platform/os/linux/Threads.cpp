#include <Base/platform/os/Threads.h>

#include <sched.h>
#include <unistd.h>
#include <cerrno>
#include <ctime>

namespace ZBase::os {

unsigned int CurrentProcessId() {
    return static_cast<unsigned int>(getpid());
}

unsigned long CurrentThreadId() {
    return static_cast<unsigned long>(gettid());
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
