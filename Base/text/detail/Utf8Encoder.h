#pragma once

#include <cstddef>

namespace ZBase::detail {

// The parts of a conversion from wide text to UTF-8, for all its forms.

/// Units before the terminator, with at most `length` units looked at; `length` 0 means terminated text.
std::size_t CountUnits(const unsigned short* source, std::size_t length);

/// Octets that suffice for `units` units, the terminator not counted.
std::size_t Utf8Capacity(std::size_t units);

/// Encodes `units` units, none of them 0, and a terminator into `destination`. Any two surrogates make a
/// character; a surrogate without another behind it throws, whatever `replace` says.
void EncodeUtf8(const unsigned short* source, std::size_t units, bool replace, char* destination);

/// Writes a value up to 0x10FFFF as one to four octets. Gives the position behind them.
inline char* PutUtf8(char* out, unsigned int value) {
    const auto put = [&out](unsigned int octet) { *out++ = static_cast<char>(octet); };
    if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        put(0x80 | (value & 0x3F));
    } else if (value < 0x10000) {
        put(0xE0 | value >> 12);
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    } else {
        put(0xF0 | value >> 18);
        put(0x80 | (value >> 12 & 0x3F));
        put(0x80 | (value >> 6 & 0x3F));
        put(0x80 | (value & 0x3F));
    }
    return out;
}

}  // namespace ZBase::detail
