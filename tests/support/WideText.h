#pragma once

#include <string>

namespace test {

/// Wide text as a string that compares and prints; the text "(null)" for null.
inline std::u16string Wide(const unsigned short* text) {
    if (text == nullptr) return u"(null)";
    std::u16string units;
    for (; *text != 0; ++text) units.push_back(static_cast<char16_t>(*text));
    return units;
}

}  // namespace test
