#include <Base/frame/Threads.h>
#include <Base/platform/os/processes/Threads.h>

namespace ZBase {

unsigned int GetCurrentProcessID() {
    return os::CurrentProcessId();
}
unsigned long GetCurrentThreadID() {
    return os::CurrentThreadId();
}
unsigned long GetCurrentThreadIDNative() {
    return os::CurrentThreadId();
}
void YieldToAnotherThread() {
    os::YieldThread();
}
void Sleep(unsigned long milliseconds) {
    os::SleepMilliseconds(milliseconds);
}

}  // namespace ZBase
