#include <Base/text/BinaryText.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <limits>
#include <string>

#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

Units Hex(const std::string& octets) {
    return test::Text(ZBase::Binary2String(octets.data(), static_cast<int>(octets.size())));
}

Units Octal(const std::string& octets) {
    return test::Text(ZBase::Binary2OctString(octets.data(), static_cast<int>(octets.size())));
}

TEST(BinaryText, UnitIsFourDigits) {
    EXPECT_EQ(test::Text(ZBase::WideChar2String(0xABCD)), ToUnits("ABCD"));
    EXPECT_EQ(test::Text(ZBase::WideChar2String('A')), ToUnits("0041"));
    EXPECT_EQ(test::Text(ZBase::WideChar2String(0)), ToUnits("0000"));
    EXPECT_EQ(test::Text(ZBase::WideChar2String(0xFFFF)), ToUnits("FFFF"));
}

TEST(BinaryText, HexadecimalFormHasTwoDigitsForEachByte) {
    EXPECT_EQ(Hex(std::string("\x00\xFF", 2)), ToUnits("00FF"));
    EXPECT_EQ(Hex("\x12\xAB\x0F\xF0"), ToUnits("12AB0FF0"));
}

TEST(BinaryText, OctalFormLeavesPrintableBytesAndDoublesNoBackslash) {
    EXPECT_EQ(Octal(std::string("a\0\\", 3)), ToUnits("a\\000\\"));
    EXPECT_EQ(Octal("\n\xFF"), ToUnits("\\012\\377"));
    EXPECT_EQ(Octal("\x1F \x7E\x7F\x80"), ToUnits("\\037 ~\\177\\200"));
}

TEST(BinaryText, EveryByteHasItsForms) {
    for (int octet = 0; octet != 256; ++octet) {
        char hex[3];
        char octal[5];
        std::snprintf(hex, sizeof hex, "%02X", static_cast<unsigned int>(octet));
        std::snprintf(octal, sizeof octal, "\\%03o", static_cast<unsigned int>(octet));
        const std::string byte(1, static_cast<char>(octet));
        EXPECT_EQ(Hex(byte), ToUnits(hex));
        EXPECT_EQ(ZBase::Char2Hex(byte[0]), hex);
        EXPECT_EQ(Octal(byte), ToUnits(octet >= 0x20 && octet <= 0x7E ? byte : octal));
    }
}

TEST(BinaryText, LengthOfZeroOrLessAndNullGiveAnEmptyText) {
    for (const int length : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(test::Text(ZBase::Binary2String("ab", length)), Units{});
        EXPECT_EQ(test::Text(ZBase::Binary2OctString("ab", length)), Units{});
    }
    EXPECT_EQ(test::Text(ZBase::Binary2String(nullptr, 5)), Units{});
    EXPECT_EQ(test::Text(ZBase::Binary2OctString(nullptr, 5)), Units{});
}

TEST(BinaryText, LargeDataSurvives) {
    const std::string octets(1000000, '\xA5');
    EXPECT_EQ(Hex(octets).size(), 2000000u);
    EXPECT_EQ(Octal(octets).size(), 4000000u);
    EXPECT_EQ(Octal(octets).substr(3999996), ToUnits("\\245"));
}

TEST(BinaryTextOfUrls, SafeCharactersPassAndOthersAreEscaped) {
    EXPECT_EQ(ZBase::UrlEncode("a b/c~"), "a%20b%2Fc~");
    EXPECT_EQ(ZBase::UrlEncode("\xC3\xA4"), "%C3%A4");
    EXPECT_EQ(ZBase::UrlEncode(""), "");
    EXPECT_EQ(ZBase::UrlEncode(std::string("a\0b", 3)), "a%00b");
}

// The last octets go one by one.
TEST(BinaryTextOfUrls, EveryOctetAtEveryPlaceOfShortTexts) {
    for (std::size_t length = 1; length <= 9; ++length) {
        for (std::size_t at = 0; at != length; ++at) {
            for (int octet = 0; octet != 256; ++octet) {
                std::string text(length, 'a');
                text[at] = static_cast<char>(octet);
                const std::string alone = ZBase::UrlEncode(std::string(1, static_cast<char>(octet)));
                EXPECT_EQ(ZBase::UrlEncode(text),
                          std::string(at, 'a') + alone + std::string(length - at - 1, 'a'));
            }
        }
    }
}

TEST(BinaryTextOfUrls, EveryByteIsSafeOrEscaped) {
    const std::string safe = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz~-_.";
    for (int octet = 0; octet != 256; ++octet) {
        const std::string byte(1, static_cast<char>(octet));
        char escaped[4];
        std::snprintf(escaped, sizeof escaped, "%%%02X", static_cast<unsigned int>(octet));
        EXPECT_EQ(ZBase::UrlEncode(byte), safe.find(byte) == std::string::npos ? escaped : byte);
    }
}

}  // namespace
