#pragma once

#include <cstdint>
#include <type_traits>

namespace ZBase::os {

namespace detail {

template <class T>
long Argument(T value) {
    if constexpr (std::is_pointer_v<T>) {
        return static_cast<long>(reinterpret_cast<std::intptr_t>(value));
    } else if constexpr (std::is_null_pointer_v<T>) {
        return 0;
    } else {
        return static_cast<long>(value);
    }
}

}  // namespace detail

/// A system call of up to four arguments that does not set `errno`. Returns the kernel's result, a negative
/// number for a failure.
template <class A = long, class B = long, class C = long, class D = long>
long SystemCall(long number, A a = {}, B b = {}, C c = {}, D d = {}) {
    long result = number;
    asm volatile("mov %[fourth], %%r10\n\tsyscall"
                 : "+a"(result)
                 : "D"(detail::Argument(a)), "S"(detail::Argument(b)),
                   "d"(detail::Argument(c)), [fourth] "r"(detail::Argument(d))
                 : "rcx", "r10", "r11", "memory");
    return result;
}

}  // namespace ZBase::os
