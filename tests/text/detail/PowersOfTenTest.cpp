#include <Base/text/detail/PowersOfTen.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <string>

namespace {

using ZBase::detail::PowerOfTen;

// The text of a power is read by the C library as the nearest number.
TEST(PowersOfTen, AreTheNearestNumbersButForTwoThatAreOneBitAbove) {
    for (int exponent = -323; exponent <= 308; ++exponent) {
        const double nearest = std::strtod(("1e" + std::to_string(exponent)).c_str(), nullptr);
        const bool isAbove = exponent == 23 || exponent == 210;
        const double expected =
            isAbove ? std::nextafter(nearest, std::numeric_limits<double>::infinity()) : nearest;
        EXPECT_EQ(PowerOfTen(exponent), expected) << exponent;
    }
}

TEST(PowersOfTen, EndWhereNumbersEnd) {
    EXPECT_EQ(PowerOfTen(309), std::numeric_limits<double>::infinity());
    EXPECT_EQ(PowerOfTen(std::numeric_limits<int>::max()), std::numeric_limits<double>::infinity());
    EXPECT_EQ(PowerOfTen(-324), 0.0);
    EXPECT_EQ(PowerOfTen(std::numeric_limits<int>::min()), 0.0);
}

}  // namespace
