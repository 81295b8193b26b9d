#pragma once

#include <cstddef>

namespace ZBase::os {

// Text in the multibyte encoding of the current character locale. A character above U+FFFF is a pair of
// units; a lone surrogate is bad text. Every call begins and ends in the encoding's initial state. Only these
// functions depend on the width of the system's own wide character.
//
// A source is `length` octets or units, none of them 0, and a terminator; nothing after that is read. The
// result is the length of the whole converted text, without a terminator, of which at most `capacity` is
// written: there are encodings in which one octet makes several units, or a unit takes more octets than
// `LongestMultibyteCharacter`.

inline constexpr std::size_t kBadText = static_cast<std::size_t>(-1);

/// Whether the locale's encoding is UTF-8.
bool MultibyteIsUtf8();

/// The longest character of the locale in octets, according to the locale.
std::size_t LongestMultibyteCharacter();

/// `kBadText` when a character is invalid, or truncated by the end of the text.
std::size_t MultibyteToWide(unsigned short* destination, std::size_t capacity, const char* source,
                            std::size_t length);

/// The same with `replacement` for each octet that begins no character.
std::size_t MultibyteToWideReplacing(unsigned short* destination, std::size_t capacity, const char* source,
                                     std::size_t length, unsigned short replacement);

/// `kBadText` when the locale's encoding lacks a character.
std::size_t WideToMultibyte(char* destination, std::size_t capacity, const unsigned short* source,
                            std::size_t length);

/// The same with `replacement` for each unit of a character that the locale's encoding lacks.
std::size_t WideToMultibyteReplacing(char* destination, std::size_t capacity, const unsigned short* source,
                                     std::size_t length, char replacement);

}  // namespace ZBase::os
