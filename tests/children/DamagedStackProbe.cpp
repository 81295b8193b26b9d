// Damages its own stack, so that a frame leads back to itself, and prints how many lines a capture gives.

#include <Base/ZBase.h>

#include <unistd.h>
#include <cstdio>
#include <cstring>

namespace {

void StayHere() {
    asm volatile("" ::: "memory");
}

[[gnu::noinline]] void Capture() {
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    std::printf("%u lines\n", stack->GetLineCount());
    stack->Delete();
    StayHere();
}

// Built with frame pointers: at each stands the caller's, and behind it the return address.
[[gnu::noinline]] void CallDamaged(int depth) {
    if (depth != 0) {
        CallDamaged(depth - 1);
        StayHere();
        return;
    }
    auto** const own = static_cast<void**>(__builtin_frame_address(0));
    auto** const callers = static_cast<void**>(own[0]);
    void* saved[2];
    std::memcpy(saved, callers, sizeof saved);
    callers[0] = own;
    callers[1] = own[1];
    StayHere();
    Capture();
    std::memcpy(callers, saved, sizeof saved);
    StayHere();
}

}  // namespace

int main() {
    alarm(20);
    CallDamaged(3);
}
