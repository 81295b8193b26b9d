#pragma once

#include <cstring>

namespace test {

// Texts compared without memory, so that it can be done while allocations fail.

inline bool Is(const char* text, const char* expected) {
    return text != nullptr && std::strcmp(text, expected) == 0;
}

inline bool Is(const unsigned short* text, const char* expected) {
    if (text == nullptr) return false;
    while (*expected != 0 && *text == static_cast<unsigned char>(*expected)) ++text, ++expected;
    return *text == static_cast<unsigned char>(*expected);
}

}  // namespace test
