#pragma once

#include <cstddef>

namespace ZBase::os {

// Text in the multibyte encoding of the current character locale. A character above U+FFFF is a pair of
// units; a lone surrogate is bad text. Every call begins in the encoding's initial state and leaves none
// behind. Only these functions know how wide the system's own wide character is.

inline constexpr std::size_t kBadText = static_cast<std::size_t>(-1);

/// The longest character of the locale in octets.
std::size_t LongestMultibyteCharacter();

/// Converts the whole of a terminated text into at most `capacity` units, the terminator included if there is
/// room. Gives the units before the terminator, or `kBadText` when a character is invalid.
std::size_t MultibyteToWide(unsigned short* destination, const char* source, std::size_t capacity);

/// Converts the character at `source`, which has `limit` octets, into one or two units, at most one for each
/// octet. Gives the octets it takes, at least 1, or -1 when they are no character.
int NextMultibyteCharacter(const char* source, std::size_t limit, unsigned short* units, int& unitCount);

/// Converts the whole of a terminated text into at most `capacity` octets, the terminator included if there
/// is room. Gives the octets before the terminator, or `kBadText` when a character can't be held.
std::size_t WideToMultibyte(char* destination, const unsigned short* source, std::size_t capacity);

/// Converts the character at `source`, a unit or a proper pair, into at most `LongestMultibyteCharacter`
/// octets. Gives the octets written, or -1; `unitCount` is the units it takes in both cases.
int NextWideCharacter(const unsigned short* source, char* octets, int& unitCount);

}  // namespace ZBase::os
