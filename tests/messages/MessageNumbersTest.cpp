#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"

#include <Base/frame/WideLiteral.h>
#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <climits>
#include <iterator>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

using ZBase::Message;

namespace {

template <class T>
concept Operand = requires(Message& message, T&& operand) { message << std::forward<T>(operand); };

struct Handle {
    operator bool() const { return true; }
    int member;
    int Function();
};
struct Pointing {
    operator void*() const { return nullptr; }
};
struct Textual {
    operator const char*() const { return "text"; }
};
struct Numeric {
    operator int() const { return 7; }
};
struct OwnOperand {
    operator bool() const { return true; }
};
Message& operator<<(Message& message, const OwnOperand&) {
    return message << "its own";
}
enum Plain { kPlain = 3 };
enum class Scoped { kOne };

void Manipulate(Message& message) {
    message << "manipulated";
}

}  // namespace

TEST(MessageNumbersAndOtherOperands, BoolIsExactlyBool) {
    EXPECT_TRUE(Operand<bool>);
    EXPECT_TRUE(Operand<bool&>);
    EXPECT_TRUE(Operand<const bool&>);
    EXPECT_TRUE(Operand<volatile bool&>);
    EXPECT_FALSE(Operand<void (&)()>);
    EXPECT_FALSE(Operand<void (*)()>);
    EXPECT_FALSE(Operand<int (&)(int)>);
    EXPECT_FALSE(Operand<void (&)(const Message&)>);
    EXPECT_FALSE(Operand<int Handle::*>);
    EXPECT_FALSE(Operand<int (Handle::*)()>);
    EXPECT_FALSE(Operand<Handle>);
    EXPECT_FALSE(Operand<Handle&>);
    EXPECT_FALSE(Operand<const Handle&>);
    EXPECT_FALSE(Operand<Pointing>);
    EXPECT_FALSE(Operand<std::vector<bool>::reference>);
    const auto captureless = [] {};
    EXPECT_FALSE(Operand<decltype(captureless)>);
    EXPECT_FALSE(Operand<int*>);
    EXPECT_FALSE(Operand<const volatile void*>);
    EXPECT_FALSE(Operand<int(&)[3]>);
    EXPECT_FALSE(Operand<std::nullptr_t>);
    const struct {
        bool flag : 1;
    } fields{true};
    Message message;
    message << fields.flag << static_cast<bool>(Handle{});
    EXPECT_STREQ(message.GetParameter(0), "true");
    EXPECT_STREQ(message.GetParameter(1), "true");
}

TEST(MessageNumbersAndOtherOperands, OnlyNarrowTextAndSixteenBitTextAreTexts) {
    EXPECT_TRUE(Operand<char*>);
    EXPECT_TRUE(Operand<const char(&)[3]>);
    EXPECT_TRUE(Operand<unsigned short*>);
    EXPECT_TRUE(Operand<Textual>);
    EXPECT_FALSE(Operand<const wchar_t(&)[3]>);
    EXPECT_FALSE(Operand<const char16_t(&)[3]>);
    EXPECT_FALSE(Operand<const char32_t(&)[3]>);
    EXPECT_FALSE(Operand<const char8_t(&)[3]>);
    EXPECT_FALSE(Operand<unsigned char*>);
    EXPECT_FALSE(Operand<signed char*>);
    EXPECT_FALSE(Operand<volatile char*>);
    EXPECT_TRUE(Operand<std::string>);
    EXPECT_TRUE(Operand<std::string_view>);
    EXPECT_TRUE(Operand<const ZBase::ReturnString&>);
    EXPECT_FALSE(Operand<std::wstring>);
    EXPECT_FALSE(Operand<std::u8string_view>);
}

TEST(MessageNumbersAndOtherOperands, WhatIsNoOperandOfOursMayHaveOneOfItsOwn) {
    Message message;
    OwnOperand variable;
    const OwnOperand constant;
    message << variable;
    message << constant;
    message << OwnOperand{};
    for (unsigned int i = 0; i != 3; ++i) EXPECT_STREQ(message.GetParameter(i), "its own");
}

TEST(MessageNumbersAndOtherOperands, ManipulatorsAreFunctionsAndWhatTurnsIntoThem) {
    Message message;
    message << Manipulate << &Manipulate << [](Message& target) { target << "by a lambda"; };
    EXPECT_STREQ(message.GetParameter(1), "manipulated");
    EXPECT_STREQ(message.GetParameter(2), "by a lambda");
}

TEST(MessageNumbersAndOtherOperands, CharactersAndPlainEnumerationsAreNumbers) {
    Message message;
    message << 'c' << L'c' << u'c' << U'c' << static_cast<short>(-3) << kPlain << Numeric{};
    const char* const expected[] = {"99", "99", "99", "99", "-3", "3", "7"};
    for (unsigned int i = 0; i != 7; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
    EXPECT_FALSE(Operand<long double>);
    EXPECT_FALSE(Operand<Scoped>);
}

TEST(MessageNumbersAndOtherOperands, TextsWithALengthEndThereOrAtTheirFirstZero) {
    Message message;
    const std::string text("one\0two", 7);
    message << std::string_view("abcdef", 3) << std::string_view() << text << std::string(2000, 'x');
    EXPECT_STREQ(message.GetParameter(0), "abc");
    EXPECT_STREQ(message.GetParameter(1), "");
    EXPECT_STREQ(message.GetParameter(2), "one");
    EXPECT_EQ(std::string(message.GetParameter(3)), std::string(2000, 'x'));
}

TEST(MessageNumbersAndOtherOperands, ATextMayLieInTheMessageItself) {
    Message message(300, 42, "template");
    message << std::string_view(message.GetTemplate()) << std::string_view(message.GetTemplate() + 3, 2);
    EXPECT_STREQ(message.GetParameter(0), "template");
    EXPECT_STREQ(message.GetParameter(1), "pl");
}

TEST(MessageNumbersAndOtherOperands, ResultStringsGoAsTheirTextsAndNullAsAnEmptyOne) {
    using namespace ZBase::Literals;
    Message message;
    message << ZBase::ReturnString("narrow") << ZBase::ReturnWString(u"wide \u20AC"_w)
            << ZBase::ReturnUString(u"units"_w);
    message << ZBase::ReturnString(nullptr) << ZBase::ReturnWString(nullptr) << ZBase::ReturnUString(nullptr);
    const char* const expected[] = {"narrow", "wide \u20AC", "units", "", "", ""};
    for (unsigned int i = 0; i != 6; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageNumbersAndOtherOperands, AResultStringStaysWithItsOwner) {
    Message message;
    const ZBase::ReturnString text("kept");
    message << text;
    EXPECT_STREQ(text.c_str(), "kept");
}

TEST(MessageNumbersAndOtherOperands, ATextThatCantBeStoredLeavesAnEmptyOneInItsPlace) {
    Message message;
    const std::string text(500, 'x');
    {
        const test::FailingAllocation failing(0);
        message << text;
    }
    message << "next";
    EXPECT_STREQ(message.GetParameter(0), "");
    EXPECT_STREQ(message.GetParameter(1), "next");
}

TEST(MessageNumbers, LongLongGoesWithAllItsBits) {
    Message message(300, 42, nullptr);
    message << LLONG_MIN << LLONG_MAX << ULLONG_MAX << -1LL << 0ULL;
    message << Message::Hex << LLONG_MIN << 255LL << ULLONG_MAX << Message::WideHex << 255ULL;
    message << Message::WideWideHex << -1LL << 0x1FFFFFFFFULL;
    const char* const expected[] = {"-9223372036854775808",
                                    "9223372036854775807",
                                    "18446744073709551615",
                                    "-1",
                                    "0",
                                    "0x8000000000000000",
                                    "0xFF",
                                    "0xFFFFFFFFFFFFFFFF",
                                    "0x000000FF",
                                    "0xFFFFFFFFFFFFFFFF",
                                    "0x00000001FFFFFFFF"};
    for (unsigned int i = 0; i != std::size(expected); ++i)
        EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageNumbers, ALongStillGoesWithItsLowHalf) {
    Message message;
    message << 4294967297L << 4294967297UL;
    EXPECT_STREQ(message.GetParameter(0), "1");
    EXPECT_STREQ(message.GetParameter(1), "1");
}

TEST(MessageNumbers, DoublesGoAsTheirShortestText) {
    using Limits = std::numeric_limits<double>;
    Message message(300, 42, nullptr);
    message << Message::Hex << 0.1 << 1.0 << -0.0 << 1e100 << Limits::max() << -Limits::min()
            << Limits::denorm_min() << Limits::infinity() << -Limits::infinity() << Limits::quiet_NaN()
            << 0.5f;
    const char* const expected[] = {
        "0.1", "1",    "-0",  "1e+100", "1.7976931348623157e+308", "-2.2250738585072014e-308", "5e-324",
        "inf", "-inf", "nan", "0.5"};
    for (unsigned int i = 0; i != std::size(expected); ++i)
        EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageNumbers, HexWithoutAHeaderChangesAndCreatesNothing) {
    Message message;
    message << Message::Hex << 255;
    EXPECT_STREQ(message.GetParameter(0), "255");
    EXPECT_EQ(test::Layout(&message), "100-75: 9#3");
}

TEST(MessageNumbers, HexadecimalFormsAndTheirWidths) {
    Message message(300, 42, nullptr);
    message << Message::Hex << -1 << 255 << 0;
    message << Message::WideHex << 255 << -1;
    message << Message::WideWideHex << 255 << 0xFFFFFFFFu;
    const char* const expected[] = {
        "0xFFFFFFFF", "0xFF", "0x0", "0x000000FF", "0xFFFFFFFF", "0x00000000000000FF", "0x00000000FFFFFFFF"};
    for (unsigned int i = 0; i != 7; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
    EXPECT_EQ(message.GetParameter(7), nullptr);
}

TEST(MessageNumbers, DecimalLimits) {
    Message message;
    message << INT_MIN << INT_MAX << 0 << -1 << 4294967295u << 0u;
    const char* const expected[] = {"-2147483648", "2147483647", "0", "-1", "4294967295", "0"};
    for (unsigned int i = 0; i != 6; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageNumbers, LongShowsItsLowThirtyTwoBits) {
    Message message(300, 42, nullptr);
    message << -1L << 4294967295ul;
    message << static_cast<long>(0x1'0000'0005LL) << static_cast<unsigned long>(0xFFFF'FFFF'8000'0000ULL);
    message << static_cast<long>(0x0000'0001'8000'0000LL) << Message::Hex
            << static_cast<unsigned long>(0x1234'5678'9ABC'DEF0ULL);
    const char* const expected[] = {"-1", "4294967295", "5", "2147483648", "-2147483648", "0x9ABCDEF0"};
    for (unsigned int i = 0; i != 6; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageNumbers, FormatStaysAndTravelsWithCopies) {
    Message message(300, 42, nullptr);
    message << Message::WideHex << 1 << "text" << 2;
    Message copy(message);
    copy << 3;
    EXPECT_STREQ(message.GetParameter(2), "0x00000002");
    EXPECT_STREQ(copy.GetParameter(3), "0x00000003");
}

TEST(MessageNumbers, DecAfterHexIsDecimalAgain) {
    Message message(300, 42, nullptr);
    message << Message::WideWideHex << 16 << Message::Dec << 16;
    EXPECT_STREQ(message.GetParameter(0), "0x0000000000000010");
    EXPECT_STREQ(message.GetParameter(1), "16");
    EXPECT_EQ(test::Hex(reinterpret_cast<unsigned char*>(&message) + 27, 2), "0a 00");
}

TEST(MessageNumbers, ManipulatorsWriteRadixAndWidthIntoTheHeader) {
    Message message(300, 42, nullptr);
    const auto format = [&] { return test::Hex(reinterpret_cast<unsigned char*>(&message) + 27, 2); };
    EXPECT_EQ(format(), "0a 00");
    Message::Hex(message);
    EXPECT_EQ(format(), "10 00");
    Message::WideHex(message);
    EXPECT_EQ(format(), "10 08");
    Message::WideWideHex(message);
    EXPECT_EQ(format(), "10 10");
    Message::Dec(message);
    EXPECT_EQ(format(), "0a 00");
}

TEST(MessageNumbers, OnlySixteenSelectsHexadecimalAndAnyWidthIsHeld) {
    Message message(300, 42, nullptr);
    unsigned char* const bytes = reinterpret_cast<unsigned char*>(&message);
    const unsigned char radices[] = {0, 8, 15, 17, 255};
    for (const unsigned char radix : radices) {
        bytes[27] = radix;
        bytes[28] = 8;
        message << 20;
    }
    for (unsigned int i = 0; i != 5; ++i) EXPECT_STREQ(message.GetParameter(i), "20");
    bytes[27] = 16;
    bytes[28] = 255;
    message << 0xABC;
    EXPECT_EQ(message.GetParameter(5), "0x" + std::string(252, '0') + "ABC");
}
