#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

namespace {

// Prevents a tail call, which would remove the frame.
inline void StayHere() {
    asm volatile("" ::: "memory");
}

[[gnu::noinline]] void CallFilter(void (*filter)(void*, ThreadContext&), void* argument) {
    ThreadContext context{};
    CaptureContext(&context);
    context.contextFlags = kFullContext;  // the capture may have set its own
    filter(argument, context);
    StayHere();
}

}  // namespace

[[gnu::noinline]] void CallWithOwnContext(void (*filter)(void*, ThreadContext&), void* argument) {
    CallFilter(filter, argument);
    StayHere();
}

}  // namespace ZBase::os
