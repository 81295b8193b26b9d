#include <Base/text/NumberText.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <locale>
#include <string>

#include "tests/support/Failures.h"
#include "tests/support/Locales.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

constexpr int kIntMin = std::numeric_limits<int>::min();
constexpr int kIntMax = std::numeric_limits<int>::max();
constexpr std::int64_t kInt64Min = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kInt64Max = std::numeric_limits<std::int64_t>::max();

TEST(NumberTextWritten, DecimalShowsASignOnlyForNegativeValues) {
    const struct {
        int value;
        const char* text;
    } rows[] = {{0, "0"},
                {7, "7"},
                {-1, "-1"},
                {1234567890, "1234567890"},
                {kIntMax, "2147483647"},
                {kIntMin, "-2147483648"}};
    for (const auto& row : rows) {
        EXPECT_EQ(test::Text(ZBase::ToDecimalString(row.value)), row.text);
        EXPECT_EQ(test::Text(ZBase::ToDecimalWString(row.value)), ToUnits(row.text));
        EXPECT_EQ(test::Text(ZBase::ToDecimal64String(row.value)), row.text);
    }
}

TEST(NumberTextWritten, Decimal64ReachesBothLimits) {
    EXPECT_EQ(test::Text(ZBase::ToDecimal64String(kInt64Max)), "9223372036854775807");
    EXPECT_EQ(test::Text(ZBase::ToDecimal64String(kInt64Min)), "-9223372036854775808");
    EXPECT_EQ(test::Text(ZBase::ToDecimal64WString(kInt64Min)), ToUnits("-9223372036854775808"));
    EXPECT_EQ(test::Text(ZBase::ToDecimal64WString(0)), ToUnits("0"));
}

TEST(NumberTextWritten, HexadecimalShowsThe32BitsWithoutPadding) {
    const struct {
        int value;
        const char *upper, *lower;
    } rows[] = {{0, "0", "0"},
                {255, "FF", "ff"},
                {-1, "FFFFFFFF", "ffffffff"},
                {-2, "FFFFFFFE", "fffffffe"},
                {0xABC, "ABC", "abc"},
                {kIntMin, "80000000", "80000000"}};
    for (const auto& row : rows) {
        EXPECT_EQ(test::Text(ZBase::ToHexUpperString(row.value)), row.upper);
        EXPECT_EQ(test::Text(ZBase::ToHexLowerString(row.value)), row.lower);
        EXPECT_EQ(test::Text(ZBase::ToHexUpperWString(row.value)), ToUnits(row.upper));
        EXPECT_EQ(test::Text(ZBase::ToHexLowerWString(row.value)), ToUnits(row.lower));
    }
}

void ExpectInt(const std::string& text, int value) {
    EXPECT_EQ(ZBase::DecimalToInt(text.c_str()), value) << text;
    EXPECT_EQ(ZBase::DecimalToInt(ToUnits(text).c_str()), value) << text;
}

void ExpectInt64(const std::string& text, std::int64_t value) {
    EXPECT_EQ(ZBase::DecimalToInt64(text.c_str()), value) << text;
    EXPECT_EQ(ZBase::DecimalToInt64(ToUnits(text).c_str()), value) << text;
}

TEST(NumberTextDecimal, TakesWhiteSpaceOneSignAndDigits) {
    ExpectInt("42", 42);
    ExpectInt(" \t\n\v\f\r-42", -42);
    ExpectInt("+0042xyz", 42);
    ExpectInt("12 34", 12);
    ExpectInt("1.9", 1);
}

TEST(NumberTextDecimal, NoNumberGivesZero) {
    for (const char* text : {"", "abc", "-", "+", "--1", "+-1", "- 1", ".5", " "}) {
        ExpectInt(text, 0);
        ExpectInt64(text, 0);
    }
    ExpectInt("0x10", 0);
}

TEST(NumberTextDecimal, ValueBeyond32BitsGivesTheLimitOfItsSign) {
    ExpectInt("2147483646", kIntMax - 1);
    ExpectInt("2147483647", kIntMax);
    ExpectInt("2147483648", kIntMax);
    ExpectInt("-2147483647", kIntMin + 1);
    ExpectInt("-2147483648", kIntMin);
    ExpectInt("-2147483649", kIntMin);
    ExpectInt("4294967296", kIntMax);
    ExpectInt("-18446744073709551617", kIntMin);
    ExpectInt("99999999999999999999999999999999999", kIntMax);
}

TEST(NumberTextDecimal64, ValueBeyond64BitsGivesTheLimitOfItsSign) {
    ExpectInt64("2147483648", 2147483648);
    ExpectInt64("9223372036854775806", kInt64Max - 1);
    ExpectInt64("9223372036854775807", kInt64Max);
    ExpectInt64("9223372036854775808", kInt64Max);
    ExpectInt64("-9223372036854775807", kInt64Min + 1);
    ExpectInt64("-9223372036854775808", kInt64Min);
    ExpectInt64("-9223372036854775809", kInt64Min);
    ExpectInt64("18446744073709551615", kInt64Max);
    ExpectInt64("18446744073709551616", kInt64Max);
    ExpectInt64("99999999999999999999999999999999999", kInt64Max);
}

TEST(NumberTextDecimal, OnlyAsciiIsSpaceOrDigit) {
    const test::ScopedLocale locale("de_DE.ISO-8859-1");
    EXPECT_EQ(ZBase::DecimalToInt("\xA0"
                                  "5"),
              0);
    EXPECT_EQ(ZBase::DecimalToInt("\x85"
                                  "5"),
              0);
    EXPECT_EQ(ZBase::DecimalToInt("1\xB2"), 1);
    EXPECT_EQ(ZBase::DecimalToInt(Units{0x3000, '5'}.c_str()), 0);
    EXPECT_EQ(ZBase::DecimalToInt(Units{0x0120, '5'}.c_str()), 0);
    EXPECT_EQ(ZBase::DecimalToInt(Units{'5', 0x0135, 0xFF15}.c_str()), 5);
}

TEST(NumberTextDecimal, NullCountsAsEmpty) {
    EXPECT_EQ(ZBase::DecimalToInt(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(ZBase::DecimalToInt(static_cast<const unsigned short*>(nullptr)), 0);
    EXPECT_EQ(ZBase::DecimalToInt64(static_cast<const char*>(nullptr)), 0);
    EXPECT_EQ(ZBase::DecimalToInt64(static_cast<const unsigned short*>(nullptr)), 0);
}

void ExpectHex(const std::string& text, bool lenient, unsigned int value) {
    EXPECT_EQ(ZBase::HexToUnsignedInt(text.c_str(), lenient), value) << text;
    EXPECT_EQ(ZBase::HexToUnsignedInt(ToUnits(text).c_str(), lenient), value) << text;
}

void ExpectHexFailure(const std::string& text, bool lenient, const std::string& start) {
    const std::string expected = "ZBase::HexToUnsignedInt: " + start + " '" + text + "'.";
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::HexToUnsignedInt(text.c_str(), lenient); }), expected);
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::HexToUnsignedInt(ToUnits(text).c_str(), lenient); }),
              expected);
}

TEST(NumberTextHexadecimal, WholeTextIsTakenInBothModes) {
    for (const bool lenient : {false, true}) {
        ExpectHex("ff", lenient, 255);
        ExpectHex("0", lenient, 0);
        ExpectHex("0xFf", lenient, 255);
        ExpectHex("0XfF", lenient, 255);
        ExpectHex(" \t\r\n+0x1F", lenient, 31);
        ExpectHex("FFFFFFFE", lenient, 0xFFFFFFFE);
        ExpectHex("0000000000000000000FFFFFFFE", lenient, 0xFFFFFFFE);
    }
}

TEST(NumberTextHexadecimal, TextBehindTheDigitsNeedsTheLenientForm) {
    for (const char* text : {"ffz", "ff ", "0xff,", "ff~"}) {
        ExpectHex(text, true, 255);
        ExpectHexFailure(text, false, "failed to parse");
    }
}

TEST(NumberTextHexadecimal, BarePrefixIsZeroInTheLenientForm) {
    for (const char* text : {"0x", "0X", "0xg", "0x 1", " 0x", "-0x"}) {
        ExpectHex(text, true, 0);
        ExpectHexFailure(text, false, "failed to parse");
    }
}

TEST(NumberTextHexadecimal, NothingToParseFailsInBothModes) {
    for (const bool lenient : {false, true}) {
        for (const char* text : {"", " ", "z", "x1", "-", "+", "--1", "+ 1", "~"}) {
            ExpectHexFailure(text, lenient, "failed to parse");
        }
    }
}

TEST(NumberTextHexadecimal, AllBitsSetCountsAsOverflow) {
    for (const bool lenient : {false, true}) {
        for (const char* text : {"FFFFFFFF", "0xffffffff", "100000000", "-1", "-100000000",
                                 "FFFFFFFFFFFFFFFFFFFFF", "10000000000000000"}) {
            ExpectHexFailure(text, lenient, "overflow while parsing");
        }
    }
    ExpectHexFailure("FFFFFFFFz", true, "overflow while parsing");
    ExpectHexFailure("FFFFFFFFz", false, "failed to parse");
}

TEST(NumberTextHexadecimal, NegativeValueWrapsAt32Bits) {
    ExpectHex("-2", false, 0xFFFFFFFE);
    ExpectHex("-0", false, 0);
    ExpectHex("-80000000", false, 0x80000000);
    ExpectHex("-FFFFFFFF", false, 1);
}

TEST(NumberTextHexadecimal, NullCountsAsEmpty) {
    for (const bool lenient : {false, true}) {
        const std::string expected = "ZBase::HexToUnsignedInt: failed to parse ''.";
        EXPECT_EQ(test::ConversionFailure(
                      [=] { ZBase::HexToUnsignedInt(static_cast<const char*>(nullptr), lenient); }),
                  expected);
        EXPECT_EQ(test::ConversionFailure(
                      [=] { ZBase::HexToUnsignedInt(static_cast<const unsigned short*>(nullptr), lenient); }),
                  expected);
    }
}

TEST(NumberTextHexadecimal, MalformedInputIsQuotedWithReplacements) {
    EXPECT_EQ(test::ConversionFailure([] { ZBase::HexToUnsignedInt("z\xFF", true); }),
              "ZBase::HexToUnsignedInt: failed to parse 'z\xEF\xBF\xBD'.");
    EXPECT_EQ(test::ConversionFailure([] {
                  ZBase::HexToUnsignedInt(Units{'z', 0xFFFE}.c_str(), true);
              }),
              "ZBase::HexToUnsignedInt: failed to parse 'z\xEF\xBF\xBD'.");
}

// The failure's text can't be stored, and that failure is thrown instead.
TEST(NumberTextHexadecimal, UnpairedSurrogateInTheInputIsWhatIsReported) {
    EXPECT_EQ(test::ConversionFailure([] {
                  ZBase::HexToUnsignedInt(Units{'z', 0xD83D}.c_str(), true);
              }),
              "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+D83D.");
}

TEST(NumberTextHexadecimal, UnitWithAnAsciiLowOctetIsNoDigit) {
    EXPECT_NE(test::ConversionFailure([] { ZBase::HexToUnsignedInt(Units{0x0141}.c_str(), true); }), "");
    EXPECT_EQ(ZBase::HexToUnsignedInt(Units{'1', 0x0141}.c_str(), true), 1u);
}

TEST(NumberTextHumanReadableSize, UnitStepsAt1024) {
    EXPECT_EQ(ZBase::GetHumanReadableSize(0), "0.00Bytes");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1), "1.00Bytes");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1023), "1023.00Bytes");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1024), "1.00KB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1536), "1.50KB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1ULL << 20), "1.00MB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1ULL << 30), "1.00GB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1ULL << 40), "1.00TB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1ULL << 50), "1.00PB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1ULL << 60), "1.00EB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(std::numeric_limits<std::uint64_t>::max()), "16.00EB");
}

TEST(NumberTextHumanReadableSize, RoundingComesAfterTheChoiceOfTheUnit) {
    EXPECT_EQ(ZBase::GetHumanReadableSize(1048575), "1024.00KB");
    EXPECT_EQ(ZBase::GetHumanReadableSize(1034), "1.01KB");
}

struct GermanNumbers : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

TEST(NumberTextHumanReadableSize, IsWrittenInTheGlobalLocaleOfTheStreams) {
    const std::locale previous = std::locale::global(std::locale(std::locale(), new GermanNumbers));
    const std::string text = ZBase::GetHumanReadableSize(1023);
    std::locale::global(previous);
    EXPECT_EQ(text, "1.023,00Bytes");
}

}  // namespace
