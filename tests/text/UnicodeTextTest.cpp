#include <Base/frame/Exceptions.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/UnicodeText.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/SlowUnicode.h"

namespace {

using ZBase::ScanUTF8;
using ZBase::ToUTF16;
using ZBase::ToUTF8;
using ZBase::UTF8Scan;

std::u16string Widened(const test::Units& units) {
    return {units.begin(), units.end()};
}

// Sequences of every length, and broken ones.
std::string RandomText(std::mt19937& random) {
    static const std::vector<std::string> pieces = {"a",
                                                    std::string(1, '\0'),
                                                    "a longer run of ASCII",
                                                    "\xC3\xA9",
                                                    "\xE2\x82\xAC",
                                                    "\xF0\x9F\x98\x80",
                                                    "\xF4\x8F\xBF\xBF",
                                                    "\xEF\xBF\xBD",
                                                    "\xF0\x8F\xBF\xBD",  // an overlong U+FFFD
                                                    "\xC0\x80",
                                                    "\xE0\x80\xAF",
                                                    "\xC1\xBF",  // overlong
                                                    "\xED\xA0\x80",
                                                    "\xED\xBF\xBF",  // surrogates
                                                    "\xEF\xBF\xBE",
                                                    "\xEF\xBF\xBF",  // U+FFFE, U+FFFF
                                                    "\xF4\x90\x80\x80",
                                                    "\xF8\x88\x80\x80\x80",
                                                    "\xFC\x84\x80\x80\x80\x80",
                                                    "\x80",
                                                    "\xBF",
                                                    "\xFE",
                                                    "\xFF",
                                                    "\xC3",
                                                    "\xE2\x82",
                                                    "\xF0\x9F\x98",
                                                    "\xF8\x88\x80\x80",
                                                    "\xFC"};
    std::string text;
    for (auto left = random() % 12; left != 0; --left) text += pieces[random() % pieces.size()];
    return text;
}

}  // namespace

TEST(UnicodeTextScan, CountsOctetsCharactersAndUnits) {
    const UTF8Scan scan = ScanUTF8("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_TRUE(scan.isWhole);
    EXPECT_EQ(scan.octets, 10u);
    EXPECT_EQ(scan.characters, 4u);
    EXPECT_EQ(scan.units, 5u);
    const UTF8Scan none = ScanUTF8({});
    EXPECT_TRUE(none.isWhole);
    EXPECT_EQ(none.octets + none.characters + none.units, 0u);
}

TEST(UnicodeTextScan, StopsWhereTheFlawedSequenceBegins) {
    const UTF8Scan scan = ScanUTF8("0123456789\xC3\xA9\xE2\x82x");
    EXPECT_FALSE(scan.isWhole);
    EXPECT_EQ(scan.octets, 12u);
    EXPECT_EQ(scan.characters, 11u);
    EXPECT_EQ(scan.units, 11u);
    EXPECT_EQ(ScanUTF8("ab\xE2\x82").octets, 2u);
    EXPECT_EQ(ScanUTF8("\xFF").octets, 0u);
}

TEST(UnicodeTextScan, TakesZerosForCharacters) {
    const UTF8Scan scan = ScanUTF8(std::string_view("a\0b\0", 4));
    EXPECT_TRUE(scan.isWhole);
    EXPECT_EQ(scan.characters, 4u);
}

TEST(UnicodeTextScan, AllocatesNothing) {
    const std::string text(100'000, 'x');
    const std::size_t before = test::AllocationCount();
    EXPECT_EQ(ScanUTF8(text).octets, text.size());
    EXPECT_EQ(test::AllocationCount(), before);
}

TEST(UnicodeText, DecodesLikeTheSlowRulesAndScansLikeThem) {
    std::mt19937 random(1);
    for (int turn = 0; turn != 3000; ++turn) {
        const std::string text = RandomText(random);
        EXPECT_EQ(ToUTF16(text, true), Widened(test::SlowUtf8ToWide(text, true).text));
        const auto strict = test::SlowUtf8ToWide(text, false);
        const UTF8Scan scan = ScanUTF8(text);
        EXPECT_EQ(scan.isWhole, strict.failure.empty());
        const std::string whole = text.substr(0, scan.octets);
        EXPECT_EQ(test::SlowUtf8ToWide(whole, false).failure, "");
        EXPECT_EQ(ToUTF16(whole, false).size(), scan.units);
        if (scan.isWhole) continue;
        try {
            ToUTF16(text, false);
            ADD_FAILURE() << "no failure of " << text;
        } catch (const ZBase::StringConversionException& failure) {
            EXPECT_EQ(failure.GetLocalizedText(0), strict.failure);
        }
    }
}

TEST(UnicodeText, GoesThereAndBackWithZerosAndAllCharacters) {
    std::string text("zero \0 and", 10);
    for (unsigned long value = 1; value < 0x110000; value += 251) {
        if ((value & 0xFFFFF800) != 0xD800 && value != 0xFFFE && value != 0xFFFF)
            text += test::SlowUtf8(value);
    }
    const std::u16string wide = ToUTF16(text, false);
    EXPECT_EQ(ToUTF8(wide, false), text);
    EXPECT_EQ(wide.size(), ScanUTF8(text).units);
    EXPECT_EQ(ToUTF8(u"", false), "");
    EXPECT_EQ(ToUTF16("", true), u"");
    EXPECT_EQ(ToUTF16(std::string_view(), false), u"");
}

TEST(UnicodeText, SurrogatesNeedAProperPair) {
    const std::u16string pair{0xD83D, 0xDE00};
    EXPECT_EQ(ToUTF8(pair, false), "\xF0\x9F\x98\x80");
    const std::u16string bad[] = {{0xD83D},       {0xDE00, 0xD83D}, {0xD83D, u'x'},
                                  {u'x', 0xDFFF}, {0xFFFE},         {0xFFFF}};
    for (const std::u16string& text : bad)
        EXPECT_THROW(ToUTF8(text, false), ZBase::StringConversionException);
    EXPECT_EQ(ToUTF8(bad[0], true), "\xEF\xBF\xBD");
    EXPECT_EQ(ToUTF8(bad[1], true), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(ToUTF8(bad[2], true), "\xEF\xBF\xBDx");
    EXPECT_EQ(ToUTF8(std::u16string{0xD83D} + pair, true), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    try {
        ToUTF8(bad[3], false);
    } catch (const ZBase::StringConversionException& failure) {
        EXPECT_STREQ(failure.GetLocalizedText(0), "ZBase::ToUTF8: Invalid UNICODE value U+DFFF.");
    }
}

TEST(UnicodeText, AFlagIsABool) {
    EXPECT_TRUE(
        (std::is_invocable_v<decltype([](auto flag) -> decltype(ToUTF16("", flag)) { return {}; }), bool>));
    EXPECT_FALSE(
        (std::is_invocable_v<decltype([](auto flag) -> decltype(ToUTF16("", flag)) { return {}; }), int>));
    EXPECT_FALSE((std::is_invocable_v<decltype([](auto flag) -> decltype(ToUTF8(u"", flag)) { return {}; }),
                                      const char*>));
}

TEST(UnicodeText, WithoutMemoryThrows) {
    const std::string text(1000, 'x');
    EXPECT_GT(test::ForEachFailingAllocation([&] {
                  try {
                      EXPECT_EQ(ToUTF8(ToUTF16(text, false), false), text);
                  } catch (const std::bad_alloc&) {
                  }
              }),
              2u);
}
