#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

// Conversions between wide text and ASCII, and between wide text and the multibyte encoding of the character
// locale (`LC_CTYPE`). Sources are terminated; a null source gives a null string.
//
// With `replace` false a character that can't be converted throws `StringConversionException`; with `replace`
// true it becomes "?". Throw `std::bad_alloc` when there is no memory for the result.

/// An octet from 0x80 up is bad.
ZBASE_API ReturnWString ASCIIToWideChar(const char* source, bool replace);

/// A unit from 0x80 up is bad; the two surrogates of one character are two bad units.
ZBASE_API ReturnString WideCharToASCII(const unsigned short* source, bool replace);

/// A character above U+FFFF becomes a surrogate pair.
ZBASE_API ReturnWString MultiByteToWideChar(const char* source, bool replace);

/// A proper surrogate pair is one character; any other surrogate is bad. A character that the locale can't
/// hold gives one "?" for each of its units.
ZBASE_API ReturnString WideCharToMultiByte(const unsigned short* source, bool replace);

}  // namespace ZBase
