#include <Base/text/NearestDouble.h>

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>

using ZBase::NearestDouble;
using ZBase::ShortestText;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

}  // namespace

TEST(NearestDouble, IsTheNearest) {
    EXPECT_EQ(NearestDouble("0.1"), 0.1);
    EXPECT_EQ(NearestDouble("-12.5e-3"), -0.0125);
    EXPECT_EQ(NearestDouble("1e23"), 1e23);
    EXPECT_EQ(NearestDouble("9007199254740993"), 9007199254740992.0);  // half way: the even one
    EXPECT_EQ(NearestDouble("2.2250738585072011e-308"), 2.2250738585072011e-308);
    EXPECT_EQ(NearestDouble("5"), 5.0);
    EXPECT_EQ(NearestDouble(".5"), 0.5);
    EXPECT_TRUE(std::signbit(*NearestDouble("-0")));
}

TEST(NearestDouble, BeyondAllDoublesIsAnInfinityOrAZero) {
    EXPECT_EQ(NearestDouble("1e309"), kInfinity);
    EXPECT_EQ(NearestDouble("-1e309"), -kInfinity);
    EXPECT_EQ(NearestDouble("1" + std::string(400, '0')), kInfinity);
    EXPECT_EQ(NearestDouble("0." + std::string(400, '0') + "1"), 0.0);
    EXPECT_EQ(NearestDouble("0." + std::string(400, '0') + "1e800"), kInfinity);
    EXPECT_EQ(NearestDouble("1" + std::string(400, '0') + "e-800"), 0.0);
    EXPECT_EQ(NearestDouble("1e99999999999999999999"), kInfinity);
    EXPECT_EQ(NearestDouble("1e+99999999999999999999"), kInfinity);
    EXPECT_EQ(NearestDouble("1e-99999999999999999999"), 0.0);
    const auto zero = NearestDouble("-1e-400");
    ASSERT_TRUE(zero.has_value());
    EXPECT_TRUE(*zero == 0 && std::signbit(*zero));
}

TEST(NearestDouble, TakesNothingButANumber) {
    for (const char* text :
         {"", "-", ".", "+1", " 1", "1 ", "1x", "1e", "0x10", "1,5", "e5", "--1", "infinit"})
        EXPECT_EQ(NearestDouble(text), std::nullopt) << text;
    EXPECT_EQ(NearestDouble({}), std::nullopt);
    EXPECT_EQ(NearestDouble("inf"), kInfinity);
    EXPECT_EQ(NearestDouble("-inf"), -kInfinity);
    EXPECT_TRUE(std::isnan(*NearestDouble("nan")));
    EXPECT_EQ(NearestDouble(std::string_view("12345", 2)), 12.0);
}

TEST(NearestDoubleShortestText, IsShortAndReadsBack) {
    EXPECT_EQ(ShortestText(0.1), "0.1");
    EXPECT_EQ(ShortestText(1), "1");
    EXPECT_EQ(ShortestText(-0.0), "-0");
    EXPECT_EQ(ShortestText(1e100), "1e+100");
    EXPECT_EQ(ShortestText(5e-324), "5e-324");
    EXPECT_EQ(ShortestText(-std::numeric_limits<double>::min()), "-2.2250738585072014e-308");
    EXPECT_EQ(ShortestText(std::numeric_limits<double>::max()), "1.7976931348623157e+308");
    EXPECT_EQ(ShortestText(-kInfinity), "-inf");
    EXPECT_EQ(ShortestText(std::numeric_limits<double>::quiet_NaN()), "nan");
}

TEST(NearestDoubleShortestText, ReadsBackToTheSameBits) {
    std::mt19937_64 random(1);
    for (int turn = 0; turn != 20'000; ++turn) {
        const auto value = std::bit_cast<double>(static_cast<std::uint64_t>(random()));
        if (std::isnan(value)) continue;
        const std::string text = ShortestText(value);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(*NearestDouble(text)), std::bit_cast<std::uint64_t>(value))
            << text;
        if (std::isfinite(value)) {
            EXPECT_EQ(std::strtod(text.c_str(), nullptr), value);
        }
    }
}
