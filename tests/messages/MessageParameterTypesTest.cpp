#include "tests/support/MessageBytes.h"

#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

using test::Layout;
using ZBase::Message;

namespace {

std::string Long(std::size_t length) {
    return std::string(length, 'x');
}

template <class T>
concept IsParameter = requires(Message& message, T operand) { message << operand; };

TEST(MessageParameterTypes, NullIsAnEmptyOne) {
    Message message;
    message << static_cast<const char*>(nullptr) << "second";
    EXPECT_STREQ(message.GetParameter(0), "");
    EXPECT_STREQ(message.GetParameter(1), "second");
    EXPECT_EQ(message.GetParameter(2), nullptr);
    EXPECT_EQ(message.GetParameter(0xFFFFFFFF), nullptr);
    EXPECT_EQ(Layout(&message), "100-66: 6#3 12#3");
}

TEST(MessageParameterTypes, BoolIsAWord) {
    Message message;
    message << true << false;
    EXPECT_STREQ(message.GetParameter(0), "true");
    EXPECT_STREQ(message.GetParameter(1), "false");
}

TEST(MessageParameterTypes, ShortOneAfterALongOneFollowsItToTheHeap) {
    Message message;
    message << Long(60).c_str() << Long(50).c_str() << "s";
    EXPECT_EQ(Layout(&message), "100-18: 66#3 | 100-21: 56#3 7#3");
    EXPECT_STREQ(message.GetParameter(2), "s");
}

TEST(MessageParameterTypes, OrdinaryOperandsFindTheirForm) {
    Message message;
    char text[] = "array";
    char* const pointer = text;
    const std::string string = "string";
    const unsigned short wide[] = {'w', 0};
    enum { kSeven = 7 };
    message << text << pointer << string.c_str() << string.size() << std::uint64_t{8} << std::int64_t{-9};
    message << short{-1} << static_cast<unsigned char>(200) << 'A' << L'B' << kSeven << wide;
    const char* const expected[] = {"array", "array", "string", "6",  "8", "-9",
                                    "-1",    "200",   "65",     "66", "7", "w"};
    for (unsigned int i = 0; i != 12; ++i) EXPECT_STREQ(message.GetParameter(i), expected[i]);
}

TEST(MessageParameterTypes, PointerThatIsNoTextIsNotTakenForABool) {
    EXPECT_TRUE(IsParameter<const char*> && IsParameter<const unsigned short*> && IsParameter<bool>);
    EXPECT_FALSE(IsParameter<const wchar_t*>);
    EXPECT_FALSE(IsParameter<const char16_t*>);
    EXPECT_FALSE(IsParameter<const char8_t*>);
    EXPECT_FALSE(IsParameter<unsigned char*>);
    EXPECT_FALSE(IsParameter<void*>);
    EXPECT_FALSE(IsParameter<Message*>);
}

TEST(MessageParameterTypes, ThousandsKeepTheirOrder) {
    Message message;
    for (int i = 0; i != 5000; ++i) message << i;
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
    const Message copy(message);
    EXPECT_EQ(test::FindFlaw(&copy), nullptr);
    for (const unsigned int i : {0u, 1u, 9u, 10u, 999u, 4999u}) {
        EXPECT_EQ(message.GetParameter(i), std::to_string(i));
        EXPECT_EQ(copy.GetParameter(i), std::to_string(i));
    }
    EXPECT_EQ(copy.GetParameter(5000), nullptr);
}

TEST(MessageParameterTypes, ManipulatorIsCalledOnTheMessage) {
    Message message;
    message << [](Message& called) { called.SetDomainAndID(7, 8); } << "x";
    EXPECT_EQ(message.GetDomain(), 7);
    EXPECT_STREQ(message.GetParameter(0), "x");
}

}  // namespace
