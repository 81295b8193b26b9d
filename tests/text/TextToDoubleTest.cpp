#include <Base/text/NumberText.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cmath>
#include <limits>
#include <string>

#include "tests/support/Failures.h"
#include "tests/support/Locales.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

double Parsed(const std::string& text) {
    return ZBase::LocaleNeutralStringToDouble(ToUnits(text).c_str());
}

void ExpectRefused(const std::string& text) {
    errno = 0;
    EXPECT_EQ(test::ConversionFailure([&] { Parsed(text); }),
              "Cannot convert string \"" + text + "\" to double.");
    EXPECT_EQ(errno, EINVAL);
}

TEST(TextToDouble, PlainNumbersParse) {
    EXPECT_EQ(Parsed("0"), 0.0);
    EXPECT_EQ(Parsed("42"), 42.0);
    EXPECT_EQ(Parsed("-42.5"), -42.5);
    EXPECT_EQ(Parsed(".5"), 0.5);
    EXPECT_EQ(Parsed("5."), 5.0);
    EXPECT_EQ(Parsed("1e2"), 100.0);
    EXPECT_EQ(Parsed("1E+2"), 100.0);
    EXPECT_EQ(Parsed("25e-1"), 2.5);
    EXPECT_EQ(Parsed(".5e1"), 5.0);
}

TEST(TextToDouble, SuccessLeavesErrnoAlone) {
    errno = 0;
    EXPECT_EQ(Parsed("12.5"), 12.5);
    EXPECT_EQ(errno, 0);
}

// The nearest doubles are 0.3, 0.7 and 3.14159; the digit-by-digit sums are one step above them.
TEST(TextToDouble, RoundsAtEachDigitRatherThanOnce) {
    EXPECT_EQ(Parsed("0.3"), 0x1.3333333333334p-2);
    EXPECT_EQ(Parsed("0.7"), 0x1.6666666666667p-1);
    EXPECT_EQ(Parsed("3.14159"), 0x1.921f9f01b866fp+1);
    EXPECT_EQ(Parsed("1.1e-5"), 0x1.711947cfa26a3p-17);
    EXPECT_EQ(Parsed("0.01"), 0x1.47ae147ae147cp-7);
    EXPECT_EQ(Parsed("0.001"), 0x1.0624dd2f1a9fdp-10);
    EXPECT_EQ(Parsed("0.1234567890123456789"), 0x1.f9add3746f65fp-4);
    EXPECT_EQ(Parsed("123456789012345678901"), 0x1.ac53a7e04bcdap+66);
}

TEST(TextToDouble, SpacesAndPlusesInAnyMixComeFirst) {
    EXPECT_EQ(Parsed("+ +-5"), -5.0);
    EXPECT_EQ(Parsed(" \t\n\v\f\r+++5"), 5.0);
    EXPECT_EQ(Parsed("+ +5"), 5.0);
}

TEST(TextToDouble, NothingIsSkippedBehindTheMinus) {
    ExpectRefused("-+5");
    ExpectRefused("- 5");
    ExpectRefused("--5");
}

TEST(TextToDouble, NoDigitIsNeeded) {
    for (const char* text : {".", "+", "   ", "e5", "E", "e+", "e-"}) EXPECT_EQ(Parsed(text), 0.0) << text;
    EXPECT_EQ(Parsed("-"), 0.0);
    EXPECT_TRUE(std::signbit(Parsed("-")));
    EXPECT_TRUE(std::signbit(Parsed("-0")));
    EXPECT_FALSE(std::signbit(Parsed(".")));
}

TEST(TextToDouble, ExponentWithoutDigitsIsZero) {
    for (const char* text : {"1e", "1E", "1e+", "1e-"}) EXPECT_EQ(Parsed(text), 1.0) << text;
}

TEST(TextToDouble, ExponentWrapsAt32Bits) {
    EXPECT_EQ(Parsed("1e4294967297"), 10.0);
    EXPECT_EQ(Parsed("1e4294967296"), 1.0);
    EXPECT_EQ(Parsed("1e4294967295"), 0.1);    // -1
    EXPECT_EQ(Parsed("1e-4294967295"), 10.0);  // 1
    EXPECT_EQ(Parsed("1e2147483648"), 0.0);    // the smallest exponent
    EXPECT_EQ(Parsed("1e-2147483648"), 0.0);
    EXPECT_EQ(Parsed("1e2147483647"), std::numeric_limits<double>::infinity());
}

TEST(TextToDouble, OverflowIsNotDetected) {
    EXPECT_EQ(Parsed("1e999"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(Parsed("-1e999"), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(Parsed("0e999")));
    EXPECT_EQ(Parsed("1e-999"), 0.0);
    EXPECT_EQ(Parsed(std::string(400, '9')), std::numeric_limits<double>::infinity());
}

TEST(TextToDouble, WhatIsLeftOverIsRefused) {
    for (const char* text : {"", "1.5 ", "1,5", "inf", "nan", "0x10", "1..2", "1.2.3", "1e5.5", "1e 5",
                             "1e+-5", "1e--5", "5-", "5+", "abc", "1d5", "-e5x"}) {
        ExpectRefused(text);
    }
}

TEST(TextToDouble, NullCountsAsEmpty) {
    errno = 0;
    EXPECT_EQ(test::ConversionFailure([] { ZBase::LocaleNeutralStringToDouble(nullptr); }),
              "Cannot convert string \"\" to double.");
    EXPECT_EQ(errno, EINVAL);
}

TEST(TextToDouble, LocaleChangesNothing) {
    for (const char* name : {"de_DE.ISO-8859-1", "en_US.UTF-8"}) {
        const test::ScopedLocale locale(name);
        EXPECT_EQ(Parsed("1.5"), 1.5);
        ExpectRefused("1,5");
        EXPECT_NE(test::ConversionFailure([] {
                      ZBase::LocaleNeutralStringToDouble(Units{0xA0, '5'}.c_str());
                  }),
                  "");
        EXPECT_NE(test::ConversionFailure([] {
                      ZBase::LocaleNeutralStringToDouble(Units{0x85, '5'}.c_str());
                  }),
                  "");
    }
}

TEST(TextToDouble, UnitWithAnAsciiLowOctetIsNeitherSpaceNorDigit) {
    for (const unsigned short unit : Units{0x0120, 0x0130, 0x012E, 0x0165, 0x2020, 0xFF15, 0xFFFD}) {
        const Units text = {unit, '5'};
        EXPECT_NE(test::ConversionFailure([&] { ZBase::LocaleNeutralStringToDouble(text.c_str()); }), "")
            << unit;
    }
}

TEST(TextToDouble, RefusedTextIsQuotedWhole) {
    const Units text = {0xE4, 0x20AC, 0xD83D, 0xDE00};
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::LocaleNeutralStringToDouble(text.c_str()); }),
              "Cannot convert string \"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\" to double.");
}

// The failure's text can't be stored, and that failure is thrown instead.
TEST(TextToDouble, UnpairedSurrogateInTheInputIsWhatIsReported) {
    errno = 0;
    EXPECT_EQ(test::ConversionFailure([] {
                  ZBase::LocaleNeutralStringToDouble(Units{'1', 0xDE00}.c_str());
              }),
              "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+DE00.");
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
