#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/NotBool.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>
#include <string>

namespace ZBase {

// Integer to text. Hexadecimal forms show the 32 bits of the value, with no prefix and no padding. Throw
// `std::bad_alloc`.

ZBASE_API ReturnString ToDecimalString(int value);
ZBASE_API ReturnWString ToDecimalWString(int value);
ZBASE_API ReturnString ToDecimal64String(std::int64_t value);
ZBASE_API ReturnWString ToDecimal64WString(std::int64_t value);
ZBASE_API ReturnString ToHexUpperString(int value);
ZBASE_API ReturnWString ToHexUpperWString(int value);
ZBASE_API ReturnString ToHexLowerString(int value);
ZBASE_API ReturnWString ToHexLowerWString(int value);

// Text to integer. Leading white space and one sign are accepted, what follows the number is ignored, no
// number gives 0, and a value outside the result's range gives its nearest limit. White space is that of the
// "C" locale, in every locale; a null text counts as an empty one.

ZBASE_API int DecimalToInt(const unsigned short* text);
ZBASE_API int DecimalToInt(const char* text);
ZBASE_API std::int64_t DecimalToInt64(const unsigned short* text);
ZBASE_API std::int64_t DecimalToInt64(const char* text);

/// The value of hexadecimal digits, with leading white space, a sign and "0x" as `strtoul` takes them. Unless
/// `lenient`, nothing may follow; with it text may, and a bare "0x" is 0. Throws `StringConversionException`
/// for anything else, and for 0xFFFFFFFF, which counts as overflow.
ZBASE_API unsigned int HexToUnsignedInt(const unsigned short* text, bool lenient);
ZBASE_API unsigned int HexToUnsignedInt(const char* text, bool lenient);

/// The value of a decimal number with "." as decimal point in every locale. White space and "+" in front,
/// then one "-", digits, a fraction and an exponent are each optional, so "." and "-" are 0. Accumulated
/// digit by digit in `double`: the result may differ from the nearest `double` in its last bits. Throws
/// `StringConversionException`, and sets `errno` to `EINVAL`, for an empty text and for trailing text, white
/// space included.
ZBASE_API double LocaleNeutralStringToDouble(const unsigned short* text);

/// A count of bytes with two decimals and its unit of 1024, such as "1.50KB", in the global locale of the
/// streams. Throws `std::bad_alloc`.
ZBASE_API std::string GetHumanReadableSize(std::uint64_t bytes);

// The flag must be exactly a `bool`.
template <NotBool Flag>
unsigned int HexToUnsignedInt(const unsigned short* text, Flag lenient) = delete;
template <NotBool Flag>
unsigned int HexToUnsignedInt(const char* text, Flag lenient) = delete;

}  // namespace ZBase
