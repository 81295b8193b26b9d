#pragma once

namespace ZBase::os {

/// Writes a value up to 0x10FFFF as one to four octets. Returns the position after them.
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

}  // namespace ZBase::os
