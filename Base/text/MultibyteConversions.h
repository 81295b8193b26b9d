#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/NotBool.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

#include <string>
#include <string_view>

namespace ZBase {

// Conversions between wide text and ASCII, and between wide text and the multibyte encoding of the character
// locale (`LC_CTYPE`). Sources are terminated; a null source gives a null string.
//
// With `replace` false a character that can't be converted throws `StringConversionException`; with `replace`
// true it becomes "?". Throw `std::bad_alloc` when there is no memory for the result.
//
// The two multibyte conversions may run on any threads at once. As with the C library itself no thread may
// change the locale meanwhile; and the C library ends the process at a text in a locale with a shift encoding
// (ISO-2022-JP and similar ones; no character map of the system has one).

/// An octet from 0x80 up is bad.
ZBASE_API ReturnWString ASCIIToWideChar(const char* source, bool replace);

/// A unit from 0x80 up is bad; the two surrogates of one character are two bad units.
ZBASE_API ReturnString WideCharToASCII(const unsigned short* source, bool replace);

/// A character above U+FFFF becomes a surrogate pair. A character that the end of the text truncates is bad.
/// With `replace` each octet that begins no character gives one "?".
ZBASE_API ReturnWString MultiByteToWideChar(const char* source, bool replace);

/// A proper surrogate pair is one character; any other surrogate is bad. A character that the locale's
/// encoding lacks gives one "?" for each of its units.
ZBASE_API ReturnString WideCharToMultiByte(const unsigned short* source, bool replace);

// The same for the standard's texts, which have a length: zeros in them are ordinary characters. They fail
// with the same texts, and an offset counts from the start of the whole text. An encoding with states starts
// over after each zero.
ZBASE_API std::u16string ASCIIToUTF16(std::string_view text, bool replace);
ZBASE_API std::string UTF16ToASCII(std::u16string_view text, bool replace);
ZBASE_API std::u16string MultiByteToUTF16(std::string_view text, bool replace);
ZBASE_API std::string UTF16ToMultiByte(std::u16string_view text, bool replace);

// The flag must be exactly a `bool`.
template <NotBool Flag>
ReturnWString ASCIIToWideChar(const char* source, Flag replace) = delete;
template <NotBool Flag>
ReturnString WideCharToASCII(const unsigned short* source, Flag replace) = delete;
template <NotBool Flag>
ReturnWString MultiByteToWideChar(const char* source, Flag replace) = delete;
template <NotBool Flag>
ReturnString WideCharToMultiByte(const unsigned short* source, Flag replace) = delete;
template <NotBool Flag>
std::u16string ASCIIToUTF16(std::string_view text, Flag replace) = delete;
template <NotBool Flag>
std::string UTF16ToASCII(std::u16string_view text, Flag replace) = delete;
template <NotBool Flag>
std::u16string MultiByteToUTF16(std::string_view text, Flag replace) = delete;
template <NotBool Flag>
std::string UTF16ToMultiByte(std::u16string_view text, Flag replace) = delete;

}  // namespace ZBase
