#pragma once

#include <Base/frame/Api.h>

#include <optional>
#include <string>
#include <string_view>

namespace ZBase {

// Doubles as text, exactly and in every locale. The text that one of the two writes the other reads back as
// the same number. (`LocaleNeutralStringToDouble` reads more forms, and may be off in the last bits.)

/// The `double` that is nearest to a decimal number such as "-12.5e-3", "inf" or "nan"; of two equally near
/// ones the even one. A number that is too large gives an infinity, one that is too small a zero, of its
/// sign. None for anything else: white space, a leading "+", hexadecimal, trailing text.
ZBASE_API std::optional<double> NearestDouble(std::string_view text) noexcept;

/// The shortest decimal text that `NearestDouble` reads as this number, such as "0.1", "1e+100", "-inf" or
/// "nan". Throws `std::bad_alloc`.
ZBASE_API std::string ShortestText(double value);

}  // namespace ZBase
