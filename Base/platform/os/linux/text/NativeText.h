#pragma once

#include <string>

namespace ZBase::os {

// Names and values are UTF-8 in the system. Unlike the library's conversions these never fail: a unit or an
// octet that is not part of a character becomes U+FFFD.

std::string ToNative(const unsigned short* text);
std::basic_string<unsigned short> FromNative(const char* text);

}  // namespace ZBase::os
