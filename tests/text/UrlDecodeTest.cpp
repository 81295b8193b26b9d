#include <Base/frame/Exceptions.h>
#include <Base/text/BinaryText.h>

#include <gtest/gtest.h>

#include <string>

using ZBase::UrlDecode;
using ZBase::UrlEncode;

TEST(UrlDecode, TakesDigitsOfEitherCase) {
    EXPECT_EQ(UrlDecode("a%20b%c3%A9"), "a b\xC3\xA9");
    EXPECT_EQ(UrlDecode("%2525"), "%25");
    EXPECT_EQ(UrlDecode("%00"), std::string(1, '\0'));
    EXPECT_EQ(UrlDecode(""), "");
}

TEST(UrlDecode, LeavesEverythingElseAsItIs) {
    EXPECT_EQ(UrlDecode("a+b/c?d=\xE9"), "a+b/c?d=\xE9");
}

TEST(UrlDecode, ReadsBackEveryByte) {
    std::string all;
    for (int octet = 0; octet != 256; ++octet) all += static_cast<char>(octet);
    EXPECT_EQ(UrlDecode(UrlEncode(all)), all);
}

TEST(UrlDecode, RefusesAPercentSignWithoutItsDigits) {
    for (const char* text : {"%", "a%", "%2", "%2x", "%x2", "%-1", "% 1", "%+1", "%0x", "%%41"})
        EXPECT_THROW(UrlDecode(text), ZBase::StringConversionException) << text;
    try {
        UrlDecode("0123456789%zz");
        ADD_FAILURE();
    } catch (const ZBase::StringConversionException& failure) {
        EXPECT_STREQ(failure.GetLocalizedText(0),
                     "ZBase::UrlDecode: No two hexadecimal digits behind % at offset 0xA.");
    }
}
