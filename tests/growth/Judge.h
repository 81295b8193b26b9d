#pragma once

#include <string>

#include "tests/growth/Meter.h"
#include "tests/growth/Row.h"

namespace test {

/// More of this above the proportion fails.
inline constexpr double kMostAbove = 1.3;

/// How a row grows: the largest factor above the proportion, from one length to the next.
struct Growth {
    Figures shortest;  // at the shortest length
    Figures factor;
};

/// Measures a row at its three lengths. Thoroughly, at three of each magnitude, which are summed: what grows
/// by doubling takes up to twice the memory at one length of what it takes at another.
Growth MeasureGrowth(const Row& row, bool isThorough = false);

/// What is wrong with it: a factor that is too large, or a reason that is not needed. Empty if nothing is.
std::string Judge(const Row& row, const Growth& growth);

}  // namespace test
