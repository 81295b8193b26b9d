#include <Base/text/MultibyteConversions.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Failures.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

TEST(AsciiConversionsToWide, NullGivesANullStringAndEmptyAnEmptyOne) {
    EXPECT_EQ(ZBase::ASCIIToWideChar(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(test::Text(ZBase::ASCIIToWideChar("", false)), Units{});
}

TEST(AsciiConversionsToWide, EveryAsciiCharacterPasses) {
    std::string text;
    for (int octet = 1; octet <= 0x7F; ++octet) text += static_cast<char>(octet);
    EXPECT_EQ(test::Text(ZBase::ASCIIToWideChar(text.c_str(), false)), ToUnits(text));
}

TEST(AsciiConversionsToWide, OtherOctetIsNamedWithItsOffset) {
    const auto failure = [](const std::string& text) {
        return test::ConversionFailure([&] { ZBase::ASCIIToWideChar(text.c_str(), false); });
    };
    EXPECT_EQ(failure("ab\xE9"), "Invalid ASCII character 0xE9 at offset 2.");
    EXPECT_EQ(failure("\x80\xFF"), "Invalid ASCII character 0x80 at offset 0.");
    EXPECT_EQ(failure(std::string(12345, 'a') + "\xFF"), "Invalid ASCII character 0xFF at offset 12345.");
}

TEST(AsciiConversionsToWide, EveryOtherOctetIsReplaced) {
    EXPECT_EQ(test::Text(ZBase::ASCIIToWideChar("ab\xE9", true)), ToUnits("ab?"));
    for (int octet = 0x80; octet <= 0xFF; ++octet) {
        const std::string text = {'<', static_cast<char>(octet), '>'};
        EXPECT_EQ(test::Text(ZBase::ASCIIToWideChar(text.c_str(), true)), ToUnits("<?>"));
    }
}

TEST(AsciiConversionsFromWide, NullGivesANullStringAndEmptyAnEmptyOne) {
    EXPECT_EQ(ZBase::WideCharToASCII(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(test::Text(ZBase::WideCharToASCII(Units().c_str(), false)), "");
}

TEST(AsciiConversionsFromWide, EveryAsciiCharacterPasses) {
    std::string text;
    for (int octet = 1; octet <= 0x7F; ++octet) text += static_cast<char>(octet);
    EXPECT_EQ(test::Text(ZBase::WideCharToASCII(ToUnits(text).c_str(), false)), text);
}

TEST(AsciiConversionsFromWide, OtherUnitIsNamedWithItsOffset) {
    const auto failure = [](const Units& text) {
        return test::ConversionFailure([&] { ZBase::WideCharToASCII(text.c_str(), false); });
    };
    EXPECT_EQ(failure({0xE9}), "Non-ASCII codepoint U+00E9 at offset 0.");
    EXPECT_EQ(failure({0x41, 0x20AC}), "Non-ASCII codepoint U+20AC at offset 1.");
    EXPECT_EQ(failure({0x80}), "Non-ASCII codepoint U+0080 at offset 0.");
    EXPECT_EQ(failure({0x41, 0xD83D, 0xDE00, 0xFFFF}), "Non-ASCII codepoint U+D83D at offset 1.");
}

TEST(AsciiConversionsFromWide, SurrogatesAreReplacedOneByOne) {
    EXPECT_EQ(test::Text(ZBase::WideCharToASCII(Units{'a', 0xD83D, 0xDE00, 0xE9, 0xFFFF, 'b'}.c_str(), true)),
              "a????b");
}

TEST(AsciiConversionsFromWide, UnitWithAnAsciiLowOctetIsNoAscii) {
    EXPECT_EQ(test::Text(ZBase::WideCharToASCII(Units{0x0141, 0x8041}.c_str(), true)), "??");
}

TEST(AsciiConversionsWithLength, ZerosAreCharactersLikeOthers) {
    using namespace std::string_literals;
    const std::string octets = "\0ab\0\0c\0"s;
    const std::u16string units = u"\0ab\0\0c\0"s;
    for (const bool replace : {false, true}) {
        EXPECT_EQ(ZBase::ASCIIToUTF16(octets, replace), units);
        EXPECT_EQ(ZBase::UTF16ToASCII(units, replace), octets);
        EXPECT_EQ(ZBase::ASCIIToUTF16("", replace), u"");
        EXPECT_EQ(ZBase::UTF16ToASCII(u"", replace), "");
        EXPECT_EQ(ZBase::ASCIIToUTF16(std::string_view("ab\xE9").substr(0, 2), replace), u"ab");
        EXPECT_EQ(ZBase::UTF16ToASCII(std::u16string_view(u"ab\xE9").substr(0, 2), replace), "ab");
    }
}

TEST(AsciiConversionsWithLength, OffsetCountsFromTheStartOfTheWholeText) {
    using namespace std::string_literals;
    EXPECT_EQ(test::ConversionFailure([] { ZBase::ASCIIToUTF16("ab\0c\xE9\xFF"s, false); }),
              "Invalid ASCII character 0xE9 at offset 4.");
    EXPECT_EQ(test::ConversionFailure([] { ZBase::UTF16ToASCII(u"ab\0\u20AC"s, false); }),
              "Non-ASCII codepoint U+20AC at offset 3.");
    EXPECT_EQ(ZBase::ASCIIToUTF16("ab\0c\xE9\xFF"s, true), u"ab\0c??"s);
    EXPECT_EQ(ZBase::UTF16ToASCII(u"\0\xD83D\xDE00"s, true), "\0??"s);
}

}  // namespace
