#include "tools/zbase/text/TextStream.h"

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Locales.h"

// The result of pieces is that of the whole.

namespace {

using namespace std::string_literals;

// The result, or "!" and the reason.
std::string Converted(const std::vector<std::string_view>& pieces, const std::string& from,
                      const std::string& to, bool replace) {
    TextConverter converter(from, to, replace);
    std::string result;
    try {
        for (const std::string_view piece : pieces) result += converter.Take(piece, false);
        return result + converter.Take({}, true);
    } catch (const BadText& bad) {
        return "!"s + bad.what();
    }
}

std::vector<std::string_view> PiecesOf(std::string_view text, std::size_t size) {
    std::vector<std::string_view> pieces;
    for (; text.size() > size; text.remove_prefix(size)) pieces.push_back(text.substr(0, size));
    pieces.push_back(text);
    return pieces;
}

// Every split into two, into three with an octet between, and pieces of every size.
void ExpectCutsToBeUnseen(const std::string& text, const std::string& from, const std::string& to) {
    for (const bool replace : {false, true}) {
        const std::string whole = Converted({text}, from, to, replace);
        const std::string_view view = text;
        for (std::size_t cut = 0; cut <= text.size(); ++cut) {
            EXPECT_EQ(Converted({view.substr(0, cut), view.substr(cut)}, from, to, replace), whole) << cut;
            if (cut == text.size()) continue;
            EXPECT_EQ(Converted({view.substr(0, cut), view.substr(cut, 1), view.substr(cut + 1)}, from, to,
                                replace),
                      whole)
                << cut;
        }
        for (std::size_t size = 1; size <= text.size(); ++size)
            EXPECT_EQ(Converted(PiecesOf(text, size), from, to, replace), whole) << size;
    }
}

const std::string kUtf8[] = {
    "",
    "plain\n",
    "a\0b\0"s,
    "a\u00E9\u20AC\U0001F600 z",
    "\U0001F600\U0001F601",
    "ab\xE2\x82",                    // cut off
    "\xE2\x82z\xF0\x9F\x98 \xC3",    // each of them
    "\xF0\x8F\xBF\xBD\xFF\x80\x80",  // an accepted overlong form, then nothing good
    "\xC0\x80\xED\xA0\x80\xEF\xBF\xBE\xF4\x90\x80\x80",
    "\xF8\x88\x80\x80\x80|\xFC\x84\x80\x80\x80\x80|\xFD\x80\x80",
};

TEST(TextStream, EveryCutOfUtf8IsUnseen) {
    for (const std::string& text : kUtf8) {
        for (const char* to : {"utf8", "utf16le", "ascii"}) ExpectCutsToBeUnseen(text, "utf8", to);
    }
}

TEST(TextStream, Utf8OfAWholeTextIsTheOneOfTheLibrary) {
    for (const std::string& text : kUtf8) {
        EXPECT_EQ(Converted(PiecesOf(text, 1), "utf8", "utf8", true),
                  ZBase::ToUTF8(ZBase::ToUTF16(text, true), true));
    }
    EXPECT_EQ(Converted(PiecesOf("a\xFFz", 1), "utf8", "utf16le", true), "a\0\xFD\xFFz\0"s);
    EXPECT_EQ(Converted(PiecesOf("ab\xE2\x82", 1), "utf8", "utf8", false),
              "!ZBase::UTF8ToWideChar: Expect more continuation octet data.");
}

TEST(TextStream, WhatComesFirstInTheTextStopsTheConversion) {
    for (std::size_t size = 1; size != 10; ++size) {
        EXPECT_EQ(Converted(PiecesOf("a\u00E9\xFFz", size), "utf8", "ascii", false),
                  "!Non-ASCII codepoint U+00E9 at offset 1.");
        EXPECT_EQ(Converted(PiecesOf("a\xFF\u00E9z", size), "utf8", "ascii", false),
                  "!ZBase::UTF8ToWideChar: Invalid octet 0xFF.");
        EXPECT_EQ(Converted(PiecesOf("a\0\xE9\0b"s, size), "utf16le", "ascii", false),
                  "!Non-ASCII codepoint U+00E9 at offset 1.");
    }
}

TEST(TextStream, EveryCutOfUtf16IsUnseen) {
    for (const std::string& text : {"a\0\xE9\0\x3D\xD8\0\xDE"s,           // a pair
                                    "\x3D\xD8\x3D\xD8\0\xDE\0\xDE"s,      // lone ones around a pair
                                    "\0\0a\0\0\0"s, "\xFE\xFF\xFF\xFF"s,  // zeros, and invalid characters
                                    "a\0b"s}) {
        for (const char* to : {"utf8", "utf16le", "ascii"}) ExpectCutsToBeUnseen(text, "utf16le", to);
    }
    EXPECT_EQ(Converted(PiecesOf("a\0b"s, 1), "utf16le", "utf8", true), "!half a UTF-16 unit at the end");
    EXPECT_EQ(Converted(PiecesOf("\x3D\xD8\0\xDE"s, 1), "utf16le", "utf8", false), "\U0001F600");
}

TEST(TextStream, OffsetOfABadCharacterCountsFromTheStart) {
    ExpectCutsToBeUnseen("ab\0c\xE9 d\xFF"s, "ascii", "utf8");
    EXPECT_EQ(Converted(PiecesOf("ab\0c\xE9"s, 2), "ascii", "utf8", false),
              "!Invalid ASCII character 0xE9 at offset 4.");
    EXPECT_EQ(Converted(PiecesOf(std::string(70'000, 'a') + "\u20AC", 999), "utf8", "ascii", false),
              "!Non-ASCII codepoint U+20AC at offset 70000.");
}

TEST(TextStream, EveryCutInALocaleOfSeveralOctetsIsUnseen) {
    const test::ScopedLocale locale("EUC-JP", 3);
    for (const std::string& text :
         {"\xC6\xFC\xCB\xDC"s, "a\x8F\xB0\xA1 \x8E\xB1\n"s, "\xC6\xFC\0\xFF\xCB\xDC\xC6"s}) {
        ExpectCutsToBeUnseen(text, "locale", "utf8");
        ExpectCutsToBeUnseen(text, "locale", "locale");
    }
    ExpectCutsToBeUnseen("\u65E5\u672C a\U0001F600\u4E02", "utf8", "locale");
}

// In these encodings a character may depend on the next one, in one direction or the other.
TEST(TextStream, CharacterThatWaitsForItsAccentMeetsItOverACut) {
    {
        const test::ScopedLocale locale("CP1255", 1);
        const std::string text = "\xE0\xC8\xE0 \xF9\xCC\xD1\xF9";  // letters followed by points
        ExpectCutsToBeUnseen(text, "locale", "utf16le");
        ExpectCutsToBeUnseen(text + text, "locale", "locale");
    }
    const test::ScopedLocale locale("BIG5-HKSCS", 2);
    ExpectCutsToBeUnseen("\x88\x62\x88\x66 \x88\x62", "locale", "utf8");
    ExpectCutsToBeUnseen("\u00CA\u0304\u00CA a\u00CA\u0304", "utf8", "locale");
}

// Without a blank or a line end, and longer than what is held back for one.
TEST(TextStream, LongTextWithoutAPlainPlaceIsCutRightly) {
    const auto repeated = [](const std::string& text, std::size_t octets) {
        std::string all;
        while (all.size() < octets) all += text;
        return all;
    };
    const auto expect = [](const std::string& text, const char* from, const char* to) {
        const std::string whole = Converted({text}, from, to, true);
        EXPECT_TRUE(Converted(PiecesOf(text, 65'537), from, to, true) == whole) << from << to;
        EXPECT_GT(whole.size(), 50'000u);
    };
    {
        const test::ScopedLocale locale("EUC-JP", 3);
        expect("x" + repeated("\xC6\xFC\x8F\xB0\xA1", 80'000) + "\xFF", "locale", "utf8");
    }
    {
        const test::ScopedLocale locale("CP1255", 1);
        expect("x" + repeated("\xF9\xCC\xD1", 80'000), "locale", "utf16le");
    }
    {
        const test::ScopedLocale locale("GB18030", 4);
        expect("x" + repeated("\x81\x30\x81\x30\xC4\xE3", 80'000), "locale", "utf8");
    }
    const test::ScopedLocale locale("BIG5-HKSCS", 2);
    expect("x" + repeated("\u00CA\u0304", 150'000), "utf8", "locale");
}

TEST(TextStream, NoMoreIsHeldThanASearchTakes) {
    TextDecoder decoder("utf8", true);
    const std::string text(1 << 20, '\xE2');
    std::size_t units = 0;
    for (const std::string_view piece : PiecesOf(text, 4096)) {
        units += decoder.Take(piece, false).size();
        ASSERT_GE(units + 8192, units);
    }
    EXPECT_EQ(units + decoder.Take({}, true).size(), text.size());
    EXPECT_GE(units, text.size() - 6);
}

TEST(TextStream, WholeUtf8LeavesWhatMayGoOn) {
    EXPECT_EQ(WholeUtf8(""), 0u);
    EXPECT_EQ(WholeUtf8("abc"), 3u);
    EXPECT_EQ(WholeUtf8("ab\xC3"), 2u);
    EXPECT_EQ(WholeUtf8("ab\xC3\xA9"), 4u);
    EXPECT_EQ(WholeUtf8("a\xF0\x9F\x98"), 1u);
    EXPECT_EQ(WholeUtf8("\xFC\x84\x80\x80\x80"), 0u);
    EXPECT_EQ(WholeUtf8("\xFC\x84\x80\x80\x80\x80"), 6u);
    EXPECT_EQ(WholeUtf8("\x80\x80\x80\x80\x80\x80\x80"), 7u);
    EXPECT_EQ(WholeUtf8("a\xFE"), 2u);
}

}  // namespace
