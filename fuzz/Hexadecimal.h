#pragma once

#include <cstdio>
#include <string>

namespace fuzz {

/// At least so many upper-case hexadecimal digits, as the C library prints them.
inline std::string Hexadecimal(unsigned long value, int digits) {
    char text[32];
    std::snprintf(text, sizeof text, "%0*lX", digits, value);
    return text;
}

}  // namespace fuzz
