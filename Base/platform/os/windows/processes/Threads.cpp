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

bool IsThreadGone(unsigned long thread) {
    const HANDLE handle = OpenThread(SYNCHRONIZE, FALSE, thread);
    if (handle == nullptr) return GetLastError() == ERROR_INVALID_PARAMETER;
    const bool isGone = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
    CloseHandle(handle);
    return isGone;
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
