// Prints a stack that `Capturer` takes. Built in several ways, with the sources in which a capture begins.

#include <Base/diagnostics/CallStack.h>

#include <cstdio>

[[gnu::noinline]] ZBase::CallStack* Capturer() {
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    asm volatile("" ::: "memory");
    return stack;
}

[[gnu::noinline]] ZBase::CallStack* CallerOfCapturer() {
    ZBase::CallStack* stack = Capturer();
    asm volatile("" ::: "memory");
    return stack;
}

int main() {
    ZBase::CallStack* stack = CallerOfCapturer();
    for (const unsigned short* text = stack->ToString(); *text != 0; ++text) std::putchar(*text);
    std::putchar('\n');
    stack->Delete();
}
