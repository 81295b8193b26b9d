#pragma once

namespace ZBase::detail {

constexpr char ToAsciiLower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A')) : character;
}

/// Whether two texts are equal, ignoring the case of ASCII letters, in every locale.
constexpr bool EqualsInAnyAsciiCase(const char* left, const char* right) {
    for (; ToAsciiLower(*left) == ToAsciiLower(*right); ++left, ++right) {
        if (*left == 0) return true;
    }
    return false;
}

}  // namespace ZBase::detail
