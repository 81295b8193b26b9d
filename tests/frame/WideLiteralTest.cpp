#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace ZBase::Literals;

template <ZBase::detail::LiteralText Text>
concept Compiles = requires { typename std::bool_constant<(ZBase::detail::WideLiteralUnits<Text>(), true)>; };

TEST(WideLiteral, IsUtf16OfAnyKindOfCharacter) {
    const ZBase::WideString text = "a\u00E9\u20AC\U0001F600"_w;
    EXPECT_EQ(text, (ZBase::WideString{0x61, 0xE9, 0x20AC, 0xD83D, 0xDE00}));
    EXPECT_EQ(ZBase::WideString(u"a\u00E9\u20AC\U0001F600"_w), text);
    EXPECT_TRUE(ZBase::WideString(""_w).empty());
}

TEST(WideLiteral, KeepsZerosInsideItAndEndsWithOne) {
    const unsigned short* text = "a\0b"_w;
    EXPECT_EQ(text[1], 0);
    EXPECT_EQ(text[2], 'b');
    EXPECT_EQ(text[3], 0);
}

TEST(WideLiteral, MalformedUtf8DoesNotCompile) {
    EXPECT_TRUE(Compiles<"\xC2\x80|\xE0\xA0\x80|\xF0\x90\x80\x80">);      // the smallest of each length
    EXPECT_TRUE(Compiles<"\xED\x9F\xBF|\xEE\x80\x80|\xF4\x8F\xBF\xBF">);  // next to the rejected ones
    EXPECT_FALSE(Compiles<"\x80">);
    EXPECT_FALSE(Compiles<"\xC3">);
    EXPECT_FALSE(Compiles<"\xC3|">);
    EXPECT_FALSE(Compiles<"\xC1\xBF">);
    EXPECT_FALSE(Compiles<"\xE0\x9F\xBF">);
    EXPECT_FALSE(Compiles<"\xF0\x8F\xBF\xBF">);
    EXPECT_FALSE(Compiles<"\xED\xA0\x80">);
    EXPECT_FALSE(Compiles<"\xED\xBF\xBF">);
    EXPECT_FALSE(Compiles<"\xF4\x90\x80\x80">);
    EXPECT_FALSE(Compiles<"\xF5\x80\x80\x80">);
    EXPECT_FALSE(Compiles<"\xFF">);
}

}  // namespace
