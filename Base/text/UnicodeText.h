#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/NotBool.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace ZBase {

// UTF-8 and UTF-16 as the standard's texts, which have a length: zeros in them are ordinary characters. Bad
// UTF-8 is as in `UTF8ToWideChar`; bad UTF-16 is every surrogate that is not part of a proper pair, and in
// both U+FFFE and U+FFFF.

/// The figures of a text, up to its first flaw.
struct UTF8Scan {
    bool isWhole;            // without a flaw; then the figures are those of the whole text
    std::size_t octets;      // where the flawed sequence begins
    std::size_t characters;  // before it
    std::size_t units;       // of UTF-16 that these characters take
};

/// Scans a text without converting it; allocates nothing.
ZBASE_API UTF8Scan ScanUTF8(std::string_view text) noexcept;

/// Convert. With `replace` false bad input throws `StringConversionException`, which names the function and
/// the bad value; with `replace` true it becomes U+FFFD. Throw `std::bad_alloc`, and `std::length_error` for
/// a result that exceeds the largest string.
ZBASE_API std::u16string ToUTF16(std::string_view text, bool replace);
ZBASE_API std::string ToUTF8(std::u16string_view text, bool replace);

// The flag must be exactly a `bool`.
template <NotBool Flag>
std::u16string ToUTF16(std::string_view text, Flag replace) = delete;
template <NotBool Flag>
std::string ToUTF8(std::u16string_view text, Flag replace) = delete;

}  // namespace ZBase
