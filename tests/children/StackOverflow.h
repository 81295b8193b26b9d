#pragma once

/// Calls itself until the stack ends.
[[gnu::noipa]] inline int Overflow(int depth) {
    volatile char frame[2048];
    frame[0] = static_cast<char>(depth);
    const int result = depth < 0 ? 0 : Overflow(depth + 1) + frame[0];
    asm volatile("");
    return result;
}
