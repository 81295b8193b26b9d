#pragma once

namespace ZBase::detail {

inline constexpr unsigned int kReplacementValue = 0xFFFD;

inline bool IsSurrogate(unsigned int value) {
    return (value & 0xFFFFF800) == 0xD800;
}

// The failures of the two helpers below, which contain their names.
[[noreturn]] void ThrowInvalidUnicodeValue(unsigned int value);
[[noreturn]] void ThrowInvalidWideChar(unsigned int unit);

/// The unit of a value. U+FFFE and everything above it throws or becomes U+FFFD; surrogates pass.
inline unsigned short UnicodeValueToWideChar(unsigned int value, bool replace) {
    if (value < 0xFFFE) return static_cast<unsigned short>(value);
    if (!replace) ThrowInvalidUnicodeValue(value);
    return kReplacementValue;
}

/// The value of a unit, checked likewise.
inline unsigned int WideCharToUnicodeValue(unsigned short unit, bool replace) {
    if (unit < 0xFFFE) return unit;
    if (!replace) ThrowInvalidWideChar(unit);
    return kReplacementValue;
}

}  // namespace ZBase::detail
