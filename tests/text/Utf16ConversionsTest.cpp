#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <iterator>
#include <limits>
#include <string>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

const Units kSurrogates = {0xD83D, 0xDE00, 0x41, 0xDE00, 0xD83D};

TEST(Utf16ConversionsCopy, NullGivesANullString) {
    EXPECT_EQ(ZBase::UTF16ToWideChar(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(ZBase::WideCharToUTF16(nullptr, true).c_str(), nullptr);
}

TEST(Utf16ConversionsCopy, EmptyTextGivesAnEmptyTextThatIsNotNull) {
    EXPECT_EQ(test::Text(ZBase::UTF16ToWideChar(Units().c_str(), false)), Units{});
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF16(Units().c_str(), false)), Units{});
}

TEST(Utf16ConversionsCopy, SurrogatesPassWhetherPairedOrNot) {
    EXPECT_EQ(test::Text(ZBase::UTF16ToWideChar(kSurrogates.c_str(), false)), kSurrogates);
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF16(kSurrogates.c_str(), false)), kSurrogates);
}

TEST(Utf16ConversionsCopy, EveryUnitButTwoPasses) {
    Units units;
    for (unsigned int unit = 1; unit < 0xFFFE; ++unit) units += static_cast<unsigned short>(unit);
    EXPECT_EQ(test::Text(ZBase::UTF16ToWideChar(units.c_str(), false)), units);
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF16(units.c_str(), false)), units);
}

TEST(Utf16ConversionsCopy, NoncharactersAreReplaced) {
    const Units units = {0x41, 0xFFFE, 0xFFFF, 0x42};
    const Units replaced = {0x41, 0xFFFD, 0xFFFD, 0x42};
    EXPECT_EQ(test::Text(ZBase::UTF16ToWideChar(units.c_str(), true)), replaced);
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF16(units.c_str(), true)), replaced);
}

TEST(Utf16ConversionsCopy, EachDirectionNamesAnotherFunction) {
    for (const unsigned short unit : Units{0xFFFE, 0xFFFF}) {
        const Units units = {0x41, unit};
        const std::string end = unit == 0xFFFE ? "FFFE." : "FFFF.";
        EXPECT_EQ(test::ConversionFailure([&] { ZBase::UTF16ToWideChar(units.c_str(), false); }),
                  "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+" + end);
        EXPECT_EQ(test::ConversionFailure([&] { ZBase::WideCharToUTF16(units.c_str(), false); }),
                  "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+" + end);
    }
}

TEST(Utf16ConversionsCopyIntoABuffer, NullSourceGivesNullAndNothingIsWritten) {
    unsigned short units[] = {0xAAAA};
    EXPECT_EQ(ZBase::WideCharToUTF16(nullptr, units, 1, false), nullptr);
    EXPECT_EQ(units[0], 0xAAAA);
}

TEST(Utf16ConversionsCopyIntoABuffer, NullDestinationGivesNull) {
    EXPECT_EQ(ZBase::WideCharToUTF16(ToUnits("a").c_str(), nullptr, 10, false), nullptr);
}

TEST(Utf16ConversionsCopyIntoABuffer, LongTextIsCutToTheCapacity) {
    const Units source = ToUnits("abc");
    const struct {
        std::uint64_t capacity;
        Units written;
    } rows[] = {{0, {0}},
                {1, {0}},
                {2, {'a', 0}},
                {3, {'a', 'b', 0}},
                {4, {'a', 'b', 'c', 0}},
                {5, {'a', 'b', 'c', 0}},
                {std::numeric_limits<std::uint64_t>::max(), {'a', 'b', 'c', 0}}};
    for (const auto& row : rows) {
        Units units(6, 0xAAAA);
        EXPECT_EQ(ZBase::WideCharToUTF16(source.c_str(), units.data(), row.capacity, false), units.data());
        Units expected = row.written;
        expected.resize(6, 0xAAAA);
        EXPECT_EQ(units, expected) << row.capacity;
    }
}

TEST(Utf16ConversionsCopyIntoABuffer, NothingIsReadOrJudgedBeyondTheCut) {
    const test::GuardedArray<unsigned short> source(ToUnits("abc"));
    unsigned short units[4];
    EXPECT_EQ(Units(ZBase::WideCharToUTF16(source.Get(), units, 4, false)), ToUnits("abc"));
    const Units bad = {'a', 0xFFFE};
    EXPECT_EQ(Units(ZBase::WideCharToUTF16(bad.c_str(), units, 2, false)), ToUnits("a"));
}

TEST(Utf16ConversionsCopyIntoABuffer, NoncharacterIsReplacedOrLeavesWhatWasWritten) {
    const Units bad = {'a', 0xFFFE, 'b'};
    unsigned short units[] = {0xAAAA, 0xAAAA, 0xAAAA, 0xAAAA};
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::WideCharToUTF16(bad.c_str(), units, 4, false); }),
              "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+FFFE.");
    EXPECT_EQ(Units(std::begin(units), std::end(units)), (Units{'a', 0xAAAA, 0xAAAA, 0xAAAA}));
    EXPECT_EQ(Units(ZBase::WideCharToUTF16(bad.c_str(), units, 4, true)), (Units{'a', 0xFFFD, 'b'}));
}

std::string Encoded(const Units& units) {
    return test::Text(ZBase::UTF16ToUTF8(units.c_str()));
}

std::string FailureOf(const Units& units) {
    return test::ConversionFailure([&] { ZBase::UTF16ToUTF8(units.c_str()); });
}

TEST(Utf16ConversionsToUtf8, NullGivesANullStringAndEmptyAnEmptyOne) {
    EXPECT_EQ(ZBase::UTF16ToUTF8(nullptr).c_str(), nullptr);
    EXPECT_EQ(Encoded({}), "");
}

TEST(Utf16ConversionsToUtf8, NoncharactersPass) {
    EXPECT_EQ(Encoded({0xFFFE, 0xFFFF}), "\xEF\xBF\xBE\xEF\xBF\xBF");
}

TEST(Utf16ConversionsToUtf8, UnitsOfEachLengthEncode) {
    EXPECT_EQ(Encoded({0x7F, 0x80, 0x7FF, 0x800}), "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80");
    EXPECT_EQ(Encoded({0xD800, 0xDC00, 0xDBFF, 0xDFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(Utf16ConversionsToUtf8, FailureNamesTheUnitAtTheReadPosition) {
    const std::string start = "ZBase::UTF16ToUTF8: Invalid UNICODE value U+";
    EXPECT_EQ(FailureOf({0xD83D}), start + "0000.");
    EXPECT_EQ(FailureOf({0x41, 0xDC00, 0x42}), start + "0042.");
    EXPECT_EQ(FailureOf({0xDC00}), start + "0000.");
    EXPECT_EQ(FailureOf({0xDE00, 0xD83D}), start + "D83D.");
    EXPECT_EQ(FailureOf({0xD83D, 0x41}), start + "0000.");
    EXPECT_EQ(FailureOf({0xD83D, 0x41, 0x42}), start + "0042.");
    EXPECT_EQ(FailureOf({0xD83D, 0xD83D, 0xDE00}), start + "DE00.");
    EXPECT_EQ(FailureOf({0xD83D, 0, 0x41}), start + "0000.");
}

}  // namespace
