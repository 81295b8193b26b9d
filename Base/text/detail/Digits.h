#pragma once

#include <cstdint>
#include <string>

namespace ZBase::detail {

inline constexpr char kUpperDigits[] = "0123456789ABCDEF";
inline constexpr char kLowerDigits[] = "0123456789abcdef";

/// `value` in upper-case hexadecimal, zero-padded to `width` digits.
inline std::string HexDigits(std::uint64_t value, int width) {
    std::string text;
    for (int shift = 60; shift >= 0; shift -= 4) {
        if (shift < 4 * width || value >> shift != 0) text.push_back(kUpperDigits[value >> shift & 0xF]);
    }
    return text;
}

}  // namespace ZBase::detail
