#include <Base/platform/os/stacks/ThreadContext.h>
#include <Base/platform/os/windows/stacks/x86_64/Registers.h>

#include <windows.h>

namespace ZBase::os {

namespace {

// A handle without the right to ask for the id is not refused here but by the call that needs more.
bool IsOwnThread(void* thread) {
    return GetThreadId(thread) == GetCurrentThreadId();
}

}  // namespace

void* OpenThread(std::uint32_t access, unsigned long threadId) {
    return ::OpenThread(access, FALSE, threadId);
}

void CloseThread(void* thread) {
    CloseHandle(thread);
}

// Who stops himself is not there to go on.
bool SuspendThread(void* thread) {
    if (thread != nullptr && IsOwnThread(thread)) {
        SetLastError(ERROR_ACCESS_DENIED);
        return false;
    }
    return ::SuspendThread(thread) != static_cast<DWORD>(-1);
}

bool ResumeThread(void* thread) {
    const DWORD stops = ::ResumeThread(thread);
    return stops != static_cast<DWORD>(-1) && stops != 0;
}

// The system waits until a thread that was told to stop has done so.
bool GetThreadContext(void* thread, ThreadContext& context) {
    if (thread == nullptr || IsOwnThread(thread)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    CONTEXT native{};
    native.ContextFlags = CONTEXT_FULL;
    if (!::GetThreadContext(thread, &native)) return false;
    std::memcpy(static_cast<void*>(&context), &native, sizeof native);
    return true;
}

void HoldThreadStops() {}
void ReleaseThreadStops() {}
void ForgetThreadStops() {}

}  // namespace ZBase::os
