#pragma once

#include <cstdint>

namespace ZBase::detail {

/// Throws `StringConversionException` with domain 0, id -1 and this text.
[[noreturn]] void ThrowConversionFailure(const unsigned short* text);
[[noreturn]] void ThrowConversionFailure(const char* text);

/// The same with `value` after the text, in at least `width` upper-case hexadecimal digits, and a full stop.
[[noreturn]] void ThrowConversionFailure(const char* text, std::uint64_t value, int width);

}  // namespace ZBase::detail
