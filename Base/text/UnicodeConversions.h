#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/NotBool.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnUString.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>

namespace ZBase {

// Conversions between UTF-8, wide text and UTF-16. Wide text holds UTF-16 units. A null source gives a null
// string.
//
// With `replace` false bad input throws `StringConversionException`, which names the function and the bad
// value; with `replace` true it becomes U+FFFD. U+FFFE and U+FFFF are bad input unless stated otherwise.
// Throw `std::bad_alloc` when there is no memory for the result.

/// U+FEFF and a terminator.
ZBASE_API extern const unsigned short UNICODE_BYTE_ORDER_MARK[2];

/// Decodes terminated UTF-8.
ZBASE_API ReturnWString UTF8ToWideChar(const char* source, bool replace);

/// Decodes `sourceLength` octets of UTF-8, zero octets included, into `destination`, which has space for
/// `sourceLength` + 1 units, and ends it with a 0. True for a null `source`, with nothing written; false for
/// a null `destination`. When it throws, `destination` has the units decoded before, without a terminator.
ZBASE_API bool UTF8ToWideChar(const unsigned char* source, unsigned short* destination,
                              std::uint64_t sourceLength, bool replace);

/// True for every octet, continuation octets included; kept for callers that rely on it.
ZBASE_API bool UTF8IsLeadingByte(char octet);

/// Length in octets, 1 to 6, of the sequence that `octet` leads. Throws `StringConversionException` for any
/// other octet.
ZBASE_API unsigned int UTF8TotalBytes(char octet);

/// Encodes terminated wide text. Any two surrogates make a character, in either order. A surrogate that is
/// not followed by another throws, whatever `replace` is.
ZBASE_API ReturnString WideCharToUTF8(const unsigned short* source, bool replace);

/// The same for at most `length` units; a 0 among them ends the text. `length` 0 means terminated text.
ZBASE_API ReturnString WideCharToUTF8UsingLength(const unsigned short* source, unsigned int length,
                                                 bool replace);

/// Copy between wide text and UTF-16, unit for unit; surrogates are not checked.
ZBASE_API ReturnWString UTF16ToWideChar(const unsigned short* source, bool replace);
ZBASE_API ReturnUString WideCharToUTF16(const unsigned short* source, bool replace);

/// The same into `destination`, which has space for `capacity` units. A long text is cut; the terminator is
/// always written, also with `capacity` 0. Returns `destination`, or null, with nothing written, for a null
/// `source`.
ZBASE_API unsigned short* WideCharToUTF16(const unsigned short* source, unsigned short* destination,
                                          std::uint64_t capacity, bool replace);

/// Encodes terminated UTF-16 strictly: throws `StringConversionException` for every surrogate that is not
/// part of a proper pair, naming the unit at the read position. U+FFFE and U+FFFF pass.
ZBASE_API ReturnString UTF16ToUTF8(const unsigned short* source);

// The flag must be exactly a `bool`.
template <NotBool Flag>
ReturnWString UTF8ToWideChar(const char* source, Flag replace) = delete;
template <NotBool Flag>
bool UTF8ToWideChar(const unsigned char* source, unsigned short* destination, std::uint64_t sourceLength,
                    Flag replace) = delete;
template <NotBool Flag>
ReturnString WideCharToUTF8(const unsigned short* source, Flag replace) = delete;
template <NotBool Flag>
ReturnString WideCharToUTF8UsingLength(const unsigned short* source, unsigned int length,
                                       Flag replace) = delete;
template <NotBool Flag>
ReturnWString UTF16ToWideChar(const unsigned short* source, Flag replace) = delete;
template <NotBool Flag>
ReturnUString WideCharToUTF16(const unsigned short* source, Flag replace) = delete;
template <NotBool Flag>
unsigned short* WideCharToUTF16(const unsigned short* source, unsigned short* destination,
                                std::uint64_t capacity, Flag replace) = delete;

}  // namespace ZBase
