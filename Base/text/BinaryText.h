#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#include <string>

namespace ZBase {

// Text forms of characters and bytes. Throw `std::bad_alloc`.

/// Four upper-case hexadecimal digits.
ZBASE_API ReturnWString WideChar2String(unsigned short unit);

/// Two upper-case hexadecimal digits for each of `length` bytes; empty for a `length` of 0 or less and for
/// null.
ZBASE_API ReturnWString Binary2String(const void* data, int length);

/// Bytes 0x20 to 0x7E unchanged, each other byte as a backslash and three octal digits. A backslash is not
/// doubled, so the form is ambiguous. Empty for a `length` of 0 or less and for null.
ZBASE_API ReturnWString Binary2OctString(const void* data, int length);

/// Two upper-case hexadecimal digits.
ZBASE_API std::string Char2Hex(char octet);

/// Percent-encodes every byte but letters, digits, "~", "-", "_" and "." (RFC 3986, unreserved characters).
ZBASE_API std::string UrlEncode(const std::string& text);

/// The bytes of percent-encoded text, zeros included: "%" and two hexadecimal digits of either case make a
/// byte, everything else stays, "+" as well. Throws `StringConversionException` for a "%" without its digits.
ZBASE_API std::string UrlDecode(const std::string& text);

}  // namespace ZBase
