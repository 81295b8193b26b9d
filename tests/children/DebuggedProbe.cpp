// Prints the symbols of its stack, a line each, and then stops for the debugger in the same function.

#include <Base/ZBase.h>

#include <csignal>
#include <cstdio>

namespace deep {

struct Stopper {
    [[gnu::noinline]] int operator()(int value) const noexcept {
        ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
        std::printf("%s\n", ZBase::WideCharToUTF8(stack->ToString(), true).c_str());
        std::fflush(stdout);
        stack->Delete();
        std::raise(SIGTRAP);
        return value + 1;
    }
};

template <class Function>
[[gnu::noinline]] int Through(int depth, const Function& function) {
    const int result = depth == 0 ? function(depth) : Through(depth - 1, function);
    asm volatile("" ::: "memory");
    return result + 1;
}

}  // namespace deep

int main() {
    return deep::Through(4, deep::Stopper{}) == 6 ? 0 : 1;
}
