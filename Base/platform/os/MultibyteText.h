#pragma once

#include <cstddef>

namespace ZBase::os {

// Text in the multibyte encoding of the current character locale. A character above U+FFFF is a pair of
// units. Only these functions know how wide the system's own wide character is.

inline constexpr std::size_t kBadText = static_cast<std::size_t>(-1);

/// Converts the whole of a terminated text into at most `capacity` units, the terminator included if there is
/// room. Gives the units before the terminator, or `kBadText` when a character is invalid.
std::size_t MultibyteToWide(unsigned short* destination, const char* source, std::size_t capacity);

/// Converts one character of at most `limit` octets into one or two units. Gives the octets it takes, at
/// least 1, or -1 when they are no character.
int NextMultibyteCharacter(const char* source, std::size_t limit, unsigned short units[2], int& unitCount);

/// Converts the whole of a terminated text into at most `capacity` octets, the terminator included if there
/// is room. Gives the octets before the terminator, or `kBadText` when a character can't be held or a
/// surrogate has no partner.
std::size_t WideToMultibyte(char* destination, const unsigned short* source, std::size_t capacity);

/// Converts the character at `source`, a unit or a proper pair, into at most `LongestMultibyteCharacter`
/// octets. Gives the octets written, or -1; `unitCount` is the units it takes in both cases.
int NextWideCharacter(const unsigned short* source, char* octets, int& unitCount);

/// The longest character of the locale in octets.
std::size_t LongestMultibyteCharacter();

}  // namespace ZBase::os
