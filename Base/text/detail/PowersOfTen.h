#pragma once

#include <cstdint>

namespace ZBase::detail {

/// 10 to a power, infinite or 0 beyond what a `double` holds. C libraries differ in the last bit of what
/// `pow` gives, and a text must be the same number on each system. Meant: 1e23 and 1e210 are one bit above
/// the nearest `double`, as the GNU C library's `pow` has them.
double PowerOfTen(std::int32_t exponent);

}  // namespace ZBase::detail
