#pragma once

#include <string>
#include <string_view>

namespace ZBase::os {

// The system's wide characters are the library's units under another name.

inline const wchar_t* ToSystem(const unsigned short* text) {
    return reinterpret_cast<const wchar_t*>(text);
}
inline wchar_t* ToSystem(unsigned short* text) {
    return reinterpret_cast<wchar_t*>(text);
}

/// UTF-8 as wide text. What is part of no character becomes U+FFFD.
std::wstring FromUtf8(std::string_view text);

/// Wide text as UTF-8. A unit that is part of no character becomes U+FFFD.
std::string ToUtf8(std::wstring_view text);

/// Writes the text and a terminator. Where there is no room for all of it nothing is written, the last code
/// is 122, and the result false.
bool PutText(std::wstring_view text, unsigned short* buffer, unsigned int capacity);

}  // namespace ZBase::os
