#pragma once

#include <functional>

#include "tests/support/Stacks.h"

/// Calls the function within `depth` + 1 frames of its own. Outside of any namespace, so that their symbol is
/// short: "Recurse(int, std::function<void ()> const&)".
[[gnu::noinline]] inline void Recurse(int depth, const std::function<void()>& innermost) {
    if (depth != 0)
        Recurse(depth - 1, innermost);
    else
        innermost();
    test::StayHere();
}

/// The same by plain functions, so that each call is one frame.
[[gnu::noinline]] inline int Deeper(int depth, int (*innermost)(void*), void* argument) {
    const int result = depth == 0 ? innermost(argument) : Deeper(depth - 1, innermost, argument);
    test::StayHere();
    return result + 1;
}
