#pragma once

#include <cstdint>

namespace ZBase::detail {

/// 10 to a power, infinite or 0 outside the range of `double`. C libraries differ in the last bit of `pow`,
/// and a text must be the same number on each system. 1e23 and 1e210 are one bit above the nearest `double`,
/// as in the GNU C library's `pow`; kept for callers that compare with its results.
double PowerOfTen(std::int32_t exponent);

}  // namespace ZBase::detail
