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

}  // namespace ZBase::detail
