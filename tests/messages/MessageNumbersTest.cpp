#include "tests/support/MessageBytes.h"

#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <climits>
#include <string>
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

TEST(MessageOperand, BoolIsExactlyBool) {
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

TEST(MessageOperand, OnlyNarrowTextAndSixteenBitTextAreTexts) {
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
    EXPECT_FALSE(Operand<std::string>);
}

TEST(MessageOperand, WhatIsNoOperandOfOursMayHaveOneOfItsOwn) {
    Message message;
    OwnOperand variable;
    const OwnOperand constant;
    message << variable;
    message << constant;
    message << OwnOperand{};
    for (unsigned int i = 0; i != 3; ++i) EXPECT_STREQ(message.GetParameter(i), "its own");
}

TEST(MessageOperand, ManipulatorsAreFunctionsAndWhatTurnsIntoThem) {
    Message message;
    message << Manipulate << &Manipulate << [](Message& target) { target << "by a lambda"; };
    EXPECT_STREQ(message.GetParameter(1), "manipulated");
    EXPECT_STREQ(message.GetParameter(2), "by a lambda");
}

TEST(MessageOperand, CharactersAndPlainEnumerationsAreNumbers) {
    Message message;
    message << 'c' << L'c' << u'c' << U'c' << static_cast<short>(-3) << kPlain << Numeric{};
    const char* const expected[] = {"99", "99", "99", "99", "-3", "3", "7"};
    for (unsigned int i = 0; i != 7; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
    EXPECT_FALSE(Operand<float>);
    EXPECT_FALSE(Operand<double>);
    EXPECT_FALSE(Operand<long double>);
    EXPECT_FALSE(Operand<long long>);
    EXPECT_FALSE(Operand<unsigned long long>);
    EXPECT_FALSE(Operand<Scoped>);
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
