#include <Base/text/MultibyteConversions.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/Locales.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

Units ToWide(const std::string& text, bool replace = false) {
    return test::Text(ZBase::MultiByteToWideChar(text.c_str(), replace));
}

std::string ToMultibyte(const Units& text, bool replace = false) {
    return test::Text(ZBase::WideCharToMultiByte(text.c_str(), replace));
}

void ExpectBothWays(const std::string& octets, const Units& units) {
    for (const bool replace : {false, true}) {
        EXPECT_EQ(ToWide(octets, replace), units);
        EXPECT_EQ(ToMultibyte(units, replace), octets);
    }
}

// Bad octets throw, or become "?" one by one.
void ExpectBadOctets(const std::string& octets, const Units& replaced) {
    EXPECT_EQ(test::ConversionFailure([&] { ToWide(octets); }), "::mbstowcs() failed.");
    EXPECT_EQ(ToWide(octets, true), replaced);
}

void ExpectBadUnits(const Units& units, const std::string& replaced) {
    EXPECT_EQ(test::ConversionFailure([&] { ToMultibyte(units); }), "::wcstombs() failed.");
    EXPECT_EQ(ToMultibyte(units, true), replaced);
}

std::string Repeated(const std::string& text, std::size_t times) {
    std::string all;
    for (std::size_t i = 0; i != times; ++i) all += text;
    return all;
}

TEST(MultibyteConversions, NullGivesANullString) {
    EXPECT_EQ(ZBase::MultiByteToWideChar(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(ZBase::WideCharToMultiByte(nullptr, true).c_str(), nullptr);
}

TEST(MultibyteConversions, EmptyTextGivesAnEmptyTextInEveryLocale) {
    ExpectBothWays("", {});
    for (const char* name : {"de_DE.ISO-8859-1", "ja_JP.EUC-JP", "en_US.UTF-8"}) {
        const test::ScopedLocale locale(name);
        ExpectBothWays("", {});
    }
}

TEST(MultibyteConversionsLatin1, EveryOctetIsTheCharacterOfItsValue) {
    const test::ScopedLocale locale("de_DE.ISO-8859-1");
    std::string octets;
    Units units;
    for (int octet = 1; octet <= 0xFF; ++octet) {
        octets += static_cast<char>(octet);
        units += static_cast<unsigned short>(octet);
    }
    ExpectBothWays(octets, units);
}

TEST(MultibyteConversionsLatin1, CharacterThatTheLocaleCannotHoldIsBad) {
    const test::ScopedLocale locale("de_DE.ISO-8859-1");
    ExpectBadUnits({'5', ' ', 0x20AC, '.'}, "5 ?.");
    ExpectBadUnits({0x0141}, "?");
}

TEST(MultibyteConversionsLatin1, SupplementaryCharacterGivesOneMarkForEachUnit) {
    const test::ScopedLocale locale("de_DE.ISO-8859-1");
    ExpectBadUnits({'a', 0xD83D, 0xDE00, 'b'}, "a??b");
    ExpectBadUnits({'a', 0xDE00, 0xD83D, 0xFC}, "a??\xFC");
}

TEST(MultibyteConversionsEucJp, CharactersOfTwoAndThreeOctetsConvert) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    ExpectBothWays("\xC6\xFC\xCB\xDC", {0x65E5, 0x672C});
    ExpectBothWays(
        "a\x8F\xB0\xA1"
        "b",
        {'a', 0x4E02, 'b'});
    ExpectBothWays("\x8E\xB1", {0xFF71});
}

TEST(MultibyteConversionsEucJp, BadOctetLeavesTheCharactersOnBothSides) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    ExpectBadOctets("\xC6\xFC\xFF\xCB\xDC", {0x65E5, '?', 0x672C});
    ExpectBadOctets("\xC6\x41\xCB\xDC", {'?', 'A', 0x672C});
}

TEST(MultibyteConversionsEucJp, CharacterCutOffAtTheEndIsBad) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    ExpectBadOctets("\xC6\xFC\xCB", {0x65E5, '?'});
    ExpectBadOctets("\x8F\xB0", {'?', '?'});
}

TEST(MultibyteConversionsUtf8, SupplementaryCharacterIsAPair) {
    const test::ScopedLocale locale("en_US.UTF-8");
    ExpectBothWays("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80z", {'a', 0xE4, 0x20AC, 0xD83D, 0xDE00, 'z'});
    ExpectBothWays("\xF4\x8F\xBF\xBF", {0xDBFF, 0xDFFF});
}

TEST(MultibyteConversionsUtf8, BadOctetsAreReplacedOneByOne) {
    const test::ScopedLocale locale("en_US.UTF-8");
    ExpectBadOctets("a\xFFz", ToUnits("a?z"));
    ExpectBadOctets("\xC3\xA4\xE2\x82\xC3\xA4", {0xE4, '?', '?', 0xE4});
    ExpectBadOctets("a\xF0\x9F\x98", ToUnits("a???"));
    ExpectBadOctets(
        "\x80"
        "a",
        ToUnits("?a"));
}

TEST(MultibyteConversionsUtf8, WhatIsNoCharacterIsBadEvenIfTheSystemTakesIt) {
    const test::ScopedLocale locale("en_US.UTF-8");
    ExpectBadOctets("\xED\xA0\x80", ToUnits("???"));
    ExpectBadOctets(
        "\xF4\x90\x80\x80"
        "a",
        ToUnits("????a"));
    ExpectBadOctets(
        "\xF8\x88\x80\x80\x80"
        "a",
        ToUnits("?????a"));
}

TEST(MultibyteConversionsUtf8, LoneSurrogateIsBad) {
    const test::ScopedLocale locale("en_US.UTF-8");
    ExpectBadUnits({0xD83D}, "?");
    ExpectBadUnits({'a', 0xD83D, 'b'}, "a?b");
    ExpectBadUnits({0xDE00, 0xD83D}, "??");
    ExpectBadUnits({0xD83D, 0xD83D, 0xDE00, 0xE4}, "?\xF0\x9F\x98\x80\xC3\xA4");
}

TEST(MultibyteConversionsUtf8, TextsOfEveryLengthAroundTheChunksConvert) {
    const test::ScopedLocale locale("en_US.UTF-8");
    for (std::size_t length = 250; length != 260; ++length) {
        for (const std::size_t times : {1, 2, 3}) {
            const std::string octets = Repeated(std::string(length, 'a') + "\xF0\x9F\x98\x80", times);
            const Units units = ToWide(octets);
            ASSERT_EQ(units.size(), (length + 2) * times);
            ASSERT_EQ(ToMultibyte(units), octets);
            ASSERT_EQ(ToWide(octets + "\xFF", true), units + static_cast<unsigned short>('?'));
            ASSERT_EQ(ToMultibyte(units + static_cast<unsigned short>(0xD800), true), octets + '?');
        }
    }
}

TEST(MultibyteConversionsUtf8, LargeTextsSurvive) {
    const test::ScopedLocale locale("en_US.UTF-8");
    const std::string octets = Repeated("\xE2\x82\xAC", 1000000);
    EXPECT_EQ(ToWide(octets), Units(1000000, 0x20AC));
    EXPECT_EQ(ToMultibyte(Units(1000000, 0x20AC)), octets);
}

// In this encoding two octets are two characters, and a character is pending until the next octet.
TEST(MultibyteConversionsHongKong, CharacterOfTwoWideOnesConverts) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    ExpectBothWays("\x88\x62", {0xCA, 0x304});
    ExpectBothWays("\x88\x66", {0xCA});
    ExpectBothWays("a\x88\x62\x88\x66\x88\x62z", {'a', 0xCA, 0x304, 0xCA, 0xCA, 0x304, 'z'});
}

TEST(MultibyteConversionsHongKong, CharacterOfTwoWideOnesSurvivesBesideABadOne) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    ExpectBadOctets("\x88\x62\xFF\x88\x62", {0xCA, 0x304, '?', 0xCA, 0x304});
    ExpectBadOctets("\x88\x66\x88", {0xCA, '?'});
    ExpectBadUnits({0xCA, 0xD800, 'z'}, "\x88\x66?z");
}

TEST(MultibyteConversionsHongKong, CharacterOfTwoWideOnesConvertsAcrossChunks) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    for (std::size_t length = 250; length != 260; ++length) {
        const std::string start(length, 'a');
        ExpectBothWays(start + "\x88\x62\x88\x62z", ToUnits(start) + Units{0xCA, 0x304, 0xCA, 0x304, 'z'});
    }
}

TEST(MultibyteConversionsHongKong, NothingIsCarriedFromOneCallToTheNext) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    for (int i = 0; i != 3; ++i) {
        EXPECT_EQ(ToMultibyte({0xCA}), "\x88\x66");
        ExpectBadUnits({0x304}, "?");
        ExpectBadOctets("a\x88", ToUnits("a?"));
        EXPECT_EQ(ToWide("\x62"), ToUnits("b"));
    }
}

TEST(MultibyteConversionsVietnamese, CharacterThatWaitsForItsToneSurvivesBesideABadOne) {
    const test::ScopedLocale locale("vi_VN.TCVN5712-1");
    ExpectBothWays("abc", ToUnits("abc"));
    ExpectBadUnits({'a', 0xD800, 'b'}, "a?b");
    EXPECT_EQ(ToWide("a"), ToUnits("a"));
}

TEST(MultibyteConversionsVietnamese, LettersBesideABadOctetSurvive) {
    const test::ScopedLocale locale("TCVN5712-1", 2);
    // 0xB5 is a with a grave, and so are the letter and the tone behind it.
    EXPECT_EQ(ToWide("ab\xB5"), (Units{'a', 'b', 0xE0}));
    EXPECT_EQ(ToWide("a\xB0"), (Units{0xE0}));
    EXPECT_EQ(ToWide("ab", true), ToUnits("ab"));
}

// A text whose terminator is at the end of a page.
template <class Text>
void ExpectNoText(const Text& octets, const Units& replaced) {
    const test::GuardedArray<char> text(octets + '\0');
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::MultiByteToWideChar(text.Get(), false); }),
              "::mbstowcs() failed.");
    EXPECT_EQ(test::Text(ZBase::MultiByteToWideChar(text.Get(), true)), replaced);
}

// Here the decoder takes the terminator for the third octet of four, and would read on after it.
TEST(MultibyteConversionsCutOff, CharacterOfFourOctetsIsNotReadBehindTheTerminator) {
    const test::ScopedLocale locale("GB18030", 4);
    ExpectNoText(std::string("\xA9\x30"), {'?', '0'});
    ExpectNoText(std::string("\x81\x30\x81"), {'?', '0', '?'});
    ExpectNoText(std::string(4095, 'a') + "\x81", ToUnits(std::string(4095, 'a') + '?'));
}

TEST(MultibyteConversionsCutOff, CharacterOfAFurtherPlaneIsNotReadBehindTheTerminator) {
    const test::ScopedLocale locale("EUC-TW", 4);
    ExpectNoText(std::string("abc\x8E\xA2"), ToUnits("abc??"));
    ExpectNoText(std::string("abc\x8E"), ToUnits("abc?"));
}

// Letter, point and point: three octets, where the locale says that a character has one.
TEST(MultibyteConversionsMoreThanTheLongest, UnitOfThreeOctetsIsWrittenWhole) {
    const test::ScopedLocale locale("CP1255", 1);
    EXPECT_EQ(ToMultibyte({0xFB2C}), "\xF9\xCC\xD1");
    EXPECT_EQ(ToMultibyte(Units(1000, 0xFB2C)), Repeated("\xF9\xCC\xD1", 1000));
    ExpectBadUnits({0xFB2C, 0x4E00, 0xFB2C}, "\xF9\xCC\xD1?\xF9\xCC\xD1");
}

// The syllable of four characters, 0B B8 BC D0 C0 without their common high octet.
TEST(MultibyteConversionsMoreThanTheLongest, OctetThatStandsForZeroIsBad) {
    const test::ScopedLocale locale("POSIX.ISIRI-3342");
    EXPECT_EQ(test::ConversionFailure([] {
                  ZBase::MultiByteToWideChar(
                      "a\x80"
                      "b",
                      false);
              }),
              "::mbstowcs() failed.");
    EXPECT_EQ(test::Text(ZBase::MultiByteToWideChar("a\x80"
                                                    "b",
                                                    true)),
              ToUnits("a?b"));
}

TEST(MultibyteConversionsMoreThanTheLongest, CodeThatTheSystemPassesOverIsBad) {
    const test::ScopedLocale locale("POSIX.CP949");
    EXPECT_EQ(test::ConversionFailure([] { ZBase::MultiByteToWideChar("a\xA2\xE8", false); }),
              "::mbstowcs() failed.");
    EXPECT_EQ(test::Text(ZBase::MultiByteToWideChar("a\xA2\xE8", true)), ToUnits("a??"));
}

TEST(MultibyteConversionsMoreThanTheLongest, OctetOfFourUnitsIsReadWhole) {
    const test::ScopedLocale locale("TSCII", 1);
    const Units syllable{0x0BB8, 0x0BCD, 0x0BB0, 0x0BC0};
    EXPECT_EQ(ToWide("\x82"), syllable);
    EXPECT_EQ(ToWide("\x82\x82"), syllable + syllable);
    EXPECT_EQ(ToWide("\x82\xFF\x82", true), syllable + static_cast<unsigned short>('?') + syllable);
}

TEST(MultibyteConversionsHongKong, WaitingCharacterMeetsItsAccentBesideABadOne) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    ExpectBadUnits({0xCA, 0x304, 0xD800, 0xCA, 0x304}, "\x88\x62?\x88\x62");
}

TEST(MultibyteConversionsWithLength, ZerosAreCharactersLikeOthers) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    using namespace std::string_literals;
    const std::string octets = "\0a\xC6\xFC\0\0\xCB\xDC\0"s;
    const std::u16string units = u"\0a\u65E5\0\0\u672C\0"s;
    for (const bool replace : {false, true}) {
        EXPECT_EQ(ZBase::MultiByteToUTF16(octets, replace), units);
        EXPECT_EQ(ZBase::UTF16ToMultiByte(units, replace), octets);
        EXPECT_EQ(ZBase::MultiByteToUTF16("", replace), u"");
        EXPECT_EQ(ZBase::UTF16ToMultiByte(u"", replace), "");
    }
}

TEST(MultibyteConversionsWithLength, NothingBehindTheLengthIsRead) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    const std::string octets = "\xC6\xFC\xCB\xDC";
    EXPECT_EQ(ZBase::MultiByteToUTF16(std::string_view(octets).substr(0, 2), false), u"\u65E5");
    EXPECT_EQ(ZBase::MultiByteToUTF16(std::string_view(octets).substr(0, 3), true), u"\u65E5?");
    const std::u16string units = u"\u65E5\xD83D\xDE00";
    EXPECT_EQ(ZBase::UTF16ToMultiByte(std::u16string_view(units).substr(0, 1), false), "\xC6\xFC");
}

TEST(MultibyteConversionsWithLength, BadTextFailsAsWithoutOneAndIsReplacedOnBothSidesOfAZero) {
    const test::ScopedLocale locale("ja_JP.EUC-JP");
    using namespace std::string_literals;
    const std::string octets = "\xC6\0\xFC\xC6\xFC"s;  // the zero splits a character
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::MultiByteToUTF16(octets, false); }),
              "::mbstowcs() failed.");
    EXPECT_EQ(ZBase::MultiByteToUTF16(octets, true), u"?\0?\u65E5"s);
    const std::u16string units = u"\xD83D\0\xDE00\u65E5"s;
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::UTF16ToMultiByte(units, false); }),
              "::wcstombs() failed.");
    EXPECT_EQ(ZBase::UTF16ToMultiByte(units, true), "?\0?\xC6\xFC"s);
}

TEST(MultibyteConversions, ThreadsConvertAtTheSameTime) {
    const test::ScopedLocale locale("zh_HK.BIG5-HKSCS");
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int number = 0; number != 4; ++number) {
        threads.emplace_back([&wrong] {
            const std::string octets = Repeated("a\x88\x62", 300);
            for (int i = 0; i != 100; ++i) {
                const Units units = ToWide(octets);
                if (units.size() != 900 || ToMultibyte(units) != octets) ++wrong;
                if (ToWide(octets + "\xFF", true) != units + static_cast<unsigned short>('?')) ++wrong;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
