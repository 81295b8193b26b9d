#include <Base/platform/os/processes/Threads.h>

#include <windows.h>

#include <algorithm>

namespace ZBase::os {

unsigned int CurrentProcessId() {
    return GetCurrentProcessId();
}

unsigned long CurrentThreadId() {
    return GetCurrentThreadId();
}

// The system reads it from the thread's own memory: there is nothing to remember.
unsigned long RememberedThreadId() {
    return GetCurrentThreadId();
}

unsigned long AlreadyRememberedThreadId() {
    return GetCurrentThreadId();
}

void YieldThread() {
    SwitchToThread();
}

// The longest time of one call stands for "for ever".
void SleepMilliseconds(unsigned long milliseconds) {
    constexpr DWORD most = INFINITE - 1;
    Sleep(std::min(milliseconds, most));
}

}  // namespace ZBase::os
