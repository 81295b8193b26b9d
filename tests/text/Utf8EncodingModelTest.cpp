// The encoders against a slow model: every unit, every pair of units of each class, and flaws at every
// position.

#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <iterator>
#include <string>

#include "tests/support/Failures.h"
#include "tests/support/SlowUnicode.h"
#include "tests/support/WideText.h"

namespace {

using test::Outcome;
using test::Units;

template <class Encode>
Outcome<std::string> OutcomeOf(Encode encode) {
    Outcome<std::string> outcome;
    outcome.failure = test::ConversionFailure([&] { outcome.text = test::Text(encode()); });
    return outcome;
}

void ExpectSame(const Outcome<std::string>& actual, const Outcome<std::string>& expected,
                const Units& units) {
    if (actual.text != expected.text || actual.failure != expected.failure) {
        ADD_FAILURE() << testing::PrintToString(units) << " gave \"" << actual.failure << "\" instead of \""
                      << expected.failure << '"';
    }
}

void ExpectModel(const Units& units) {
    for (const bool replace : {false, true}) {
        ExpectSame(OutcomeOf([&] { return ZBase::WideCharToUTF8(units.c_str(), replace); }),
                   test::SlowWideToUtf8(units, replace), units);
    }
    ExpectSame(OutcomeOf([&] { return ZBase::UTF16ToUTF8(units.c_str()); }), test::SlowUtf16ToUtf8(units),
               units);
}

// The units on both sides of each boundary between two kinds.
const Units kClasses = {0x01,   0x41,   0x7F,   0x80,   0x7FF,  0x800,  0xD7FF, 0xD800, 0xD801,
                        0xDBFF, 0xDC00, 0xDC01, 0xDFFF, 0xE000, 0xFFFD, 0xFFFE, 0xFFFF};

TEST(Utf8EncodingModel, EveryUnitAlone) {
    for (unsigned int unit = 1; unit <= 0xFFFF; ++unit) {
        ExpectModel({static_cast<unsigned short>(unit)});
        ASSERT_FALSE(HasFailure());
    }
}

TEST(Utf8EncodingModel, UpToFourUnitsOfEachClass) {
    for (const unsigned short first : kClasses) {
        for (const unsigned short second : kClasses) {
            ExpectModel({first, second});
            for (const unsigned short third : kClasses) {
                ExpectModel({first, second, third});
                for (const unsigned short fourth : Units{0x41, 0xD83D, 0xDE00}) {
                    ExpectModel({first, second, third, fourth});
                }
            }
            ASSERT_FALSE(HasFailure());
        }
    }
}

TEST(Utf8EncodingModel, EveryScalarValueThereAndBack) {
    for (unsigned long value = 1; value <= 0x10FFFF; ++value) {
        if ((value >= 0xD800 && value <= 0xDFFF) || value == 0xFFFE || value == 0xFFFF) continue;
        const Units units = test::SlowUtf16(value);
        const std::string octets = test::Text(ZBase::WideCharToUTF8(units.c_str(), false));
        ASSERT_EQ(octets, test::SlowUtf8(value));
        ASSERT_EQ(test::Text(ZBase::UTF8ToWideChar(octets.c_str(), false)), units);
        ASSERT_EQ(test::Text(ZBase::UTF16ToUTF8(units.c_str())), octets);
    }
}

TEST(Utf8EncodingModel, FlawAtEveryPositionOfTextsUpTo200Units) {
    const Units pieces[] = {{'a'}, {'a', 0xE4}, {0x4E16}, {'a', 'b', 'c', 'd', 'e', 0xD83D, 0xDE00}};
    const Units flaws[] = {{0xFFFE}, {0xD83D}, {0xDE00}, {0xFFFF}, {0xDE00, 0xD83D}};
    for (const Units& piece : pieces) {
        Units whole;
        while (whole.size() < 200) whole += piece;
        for (std::size_t length = 1; length <= 200; ++length) {
            for (std::size_t position = 0; position < length; ++position) {
                const Units& flaw = flaws[(position + length) % std::size(flaws)];
                Units units = whole.substr(0, length);
                units.replace(position, flaw.size(), flaw);
                ExpectModel(units);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

}  // namespace
