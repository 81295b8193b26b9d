#pragma once

#include <Base/frame/Api.h>

#include <optional>
#include <string>
#include <string_view>

namespace ZBase {

// Doubles as text, exactly and in every locale. What one of the two writes the other reads back as the same
// number. (`LocaleNeutralStringToDouble` reads more forms, and may be off in the last bits.)

/// The `double` that is nearest to a decimal number such as "-12.5e-3", "inf" or "nan"; of two that are as
/// near, the even one. One that is too large gives an infinity, one that is too small a zero, of its sign.
/// None for anything else: white space, a "+" in front, hexadecimal, something left over.
ZBASE_API std::optional<double> NearestDouble(std::string_view text) noexcept;

/// The shortest decimal text of which this is the nearest `double`, such as "0.1", "1e+100", "-inf" or "nan".
/// Throws `std::bad_alloc`.
ZBASE_API std::string ShortestText(double value);

}  // namespace ZBase
