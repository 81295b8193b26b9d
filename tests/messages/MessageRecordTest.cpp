#include "tests/support/MessageBytes.h"

#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>

using test::Hex;
using test::Layout;
using ZBase::Message;

namespace {

const unsigned char* Bytes(const Message& message) {
    return reinterpret_cast<const unsigned char*>(&message);
}

std::string Long(std::size_t length) {
    return std::string(length, 'x');
}

}  // namespace

TEST(MessageRecord, HeaderTemplateAndParameterLieBackToBack) {
    Message message(300, 42, "Cannot open %1");
    message << "x";
    const std::string expected =
        "64 00 00 00 2c 00 00 00 00 00 00 00 00 00 00 00 "              // capacity 100, free 44, next 0
        "0d 00 00 00 01 2a 00 00 00 2c 01 0a 00 "                       // header at 16: 42, 300, 10, 0
        "14 00 00 00 02 43 61 6e 6e 6f 74 20 6f 70 65 6e 20 25 31 00 "  // template at 29
        "07 00 00 00 03 78 00";                                         // parameter at 49
    EXPECT_EQ(Hex(&message, 56), expected);
}

TEST(MessageRecord, EmptyMessageIsAHeaderOfSixteenBytes) {
    const Message message;
    EXPECT_EQ(Hex(&message, 16), "64 00 00 00 54 00 00 00 00 00 00 00 00 00 00 00");
}

TEST(MessageRecord, NegativeIdAndLargestDomainAreLittleEndian) {
    const Message message(0xFFFE, -2, nullptr);
    EXPECT_EQ(Hex(Bytes(message) + 16, 13), "0d 00 00 00 01 fe ff ff ff fe ff 0a 00");
    EXPECT_EQ(message.GetDomain(), 0xFFFE);
    EXPECT_EQ(message.GetID(), -2);
    EXPECT_EQ(message.GetErrorCode(), 0xFFFFFFFEu);
}

TEST(MessageRecord, LocalizedTextHasItsLanguageInFrontAndAByteToSpare) {
    Message message;
    message.SetLocalizedText(1033, "ab");
    EXPECT_EQ(Hex(Bytes(message) + 16, 10), "0b 00 00 00 06 09 04 61 62 00");
    EXPECT_EQ(Layout(&message), "100-73: 11#6");
}

TEST(MessageRecord, MessageIsOneHundredBytesWithoutAlignment) {
    EXPECT_EQ(sizeof(Message), 100u);
    EXPECT_EQ(alignof(Message), 1u);
    const unsigned int* const minSize = &Message::MIN_SIZE;
    EXPECT_EQ(*minSize, 16u);
}

TEST(MessageRecord, HeapBlockIsAsLargeAsItsRecordOrOneHundredBytes) {
    Message message;
    message << Long(94).c_str();  // record of 100 bytes
    EXPECT_EQ(Layout(&message), "100-84: | 116-0: 100#3");
    Message other;
    other << Long(79).c_str();  // record of 85 bytes
    EXPECT_EQ(Layout(&other), "100-84: | 101-0: 85#3");
    Message third;
    third << Long(60).c_str() << Long(10).c_str() << Long(60).c_str();
    EXPECT_EQ(Layout(&third), "100-2: 66#3 16#3 | 100-18: 66#3");
}

TEST(MessageRecord, RecordThatFillsTheBlockToTheByteTakesNoHeapBlock) {
    Message message;
    message << Long(78).c_str();
    EXPECT_EQ(Layout(&message), "100-0: 84#3");
    message << "";
    EXPECT_EQ(Layout(&message), "100-0: 84#3 | 100-78: 6#3");
}

TEST(MessageRecordState, DefaultMessageIsEmpty) {
    const Message message;
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(message.GetDomain(), 0);
    EXPECT_EQ(message.GetID(), 0);
    EXPECT_EQ(message.GetErrorCode(), 0u);
    EXPECT_EQ(message.GetTemplate(), nullptr);
    EXPECT_EQ(message.GetParameter(0), nullptr);
    EXPECT_EQ(message.GetLocalizedText(0), nullptr);
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_EQ(message.GetSameLevelMessageOrNULL(), nullptr);
}

TEST(MessageRecordState, MessageWithOnlyDeletedRecordsIsEmpty) {
    Message message;
    message.SetTemplate("gone");
    EXPECT_FALSE(message.IsEmpty());
    message.SetTemplate(nullptr);
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(Layout(&message), "100-74: 10#0");
}

TEST(MessageRecordState, ConstructorWithoutTemplatePlacesOnlyTheHeader) {
    const Message message(300, 42, nullptr);
    EXPECT_EQ(Layout(&message), "100-71: 13#1");
    EXPECT_EQ(message.GetTemplate(), nullptr);
}

TEST(MessageRecordState, EmptyTemplateIsATemplate) {
    const Message message(300, 42, "");
    EXPECT_STREQ(message.GetTemplate(), "");
}

TEST(MessageRecordState, ClearGivesTheChainBackAndKeepsTheCapacity) {
    Message message(300, 42, Long(200).c_str());
    message.Clear();
    EXPECT_EQ(Layout(&message), "100-84:");
    EXPECT_TRUE(message.IsEmpty());
    message.Clear();
    EXPECT_EQ(Layout(&message), "100-84:");
}

TEST(MessageRecordState, CopyIsCompactAndKeepsTheOrder) {
    Message message(300, 42, "short");
    message << "one";
    message.SetTemplate("a longer template");
    message << "two";
    EXPECT_EQ(Layout(&message), "100-19: 13#1 11#0 9#3 23#2 9#3");
    const Message copy(message);
    EXPECT_EQ(Layout(&copy), "100-30: 13#1 9#3 23#2 9#3");
    EXPECT_STREQ(copy.GetTemplate(), "a longer template");
    EXPECT_STREQ(copy.GetParameter(0), "one");
    EXPECT_STREQ(copy.GetParameter(1), "two");
}

TEST(MessageRecordState, AssignmentReplacesTheContent) {
    Message message(1, 2, Long(150).c_str());
    const Message other(300, 42, "other");
    EXPECT_EQ(&(message = other), &message);
    EXPECT_EQ(Layout(&message), "100-60: 13#1 11#2");
}

TEST(MessageRecordState, AssignmentToItselfEmpties) {
    Message message(300, 42, "text");
    message << Long(200).c_str();
    Message& same = message;
    message = same;
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(Layout(&message), "100-84:");
}

TEST(MessageRecordState, AssignmentOfANestedMessageUnwraps) {
    for (const std::size_t length : {std::size_t{1}, std::size_t{150}}) {
        Message message(1, 2, Long(length).c_str());
        message.WrapBy(3, 4, "Outer");
        message = *message.GetLowerLevelMessageOrNULL();
        EXPECT_EQ(message.GetID(), 2);
        EXPECT_EQ(message.GetTemplate(), Long(length));
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL(), nullptr);
        EXPECT_EQ(test::FindFlaw(&message), nullptr);
    }
}

TEST(MessageRecordHeader, SetDomainAndIdOverwritesInPlaceAndKeepsTheNumberFormat) {
    Message message(300, 42, nullptr);
    message << Message::WideHex;
    message.SetDomainAndID(10, -1);
    EXPECT_EQ(Layout(&message), "100-71: 13#1");
    EXPECT_EQ(Hex(Bytes(message) + 21, 8), "ff ff ff ff 0a 00 10 08");
}

TEST(MessageRecordHeader, HeaderPlacedLateMayLandAheadOfTheParameters) {
    Message message;
    message << Long(60).c_str() << Long(60).c_str();
    EXPECT_EQ(Layout(&message), "100-18: 66#3 | 100-18: 66#3");
    message.SetDomainAndID(300, 42);
    EXPECT_EQ(Layout(&message), "100-5: 66#3 13#1 | 100-18: 66#3");
    EXPECT_EQ(message.GetID(), 42);
}

TEST(MessageRecordTemplate, NullDeletesAndDoesNothingWithoutATemplate) {
    Message message(300, 42, "text");
    message.SetTemplate(nullptr);
    EXPECT_EQ(message.GetTemplate(), nullptr);
    EXPECT_EQ(Layout(&message), "100-61: 13#1 10#0");
    message.SetTemplate(nullptr);
    EXPECT_EQ(Layout(&message), "100-61: 13#1 10#0");
}

TEST(MessageRecordTemplate, ShorterOneIsWrittenInTheOldRecord) {
    Message message(300, 42, "long text");
    message.SetTemplate("text");
    EXPECT_EQ(Layout(&message), "100-56: 13#1 15#2");
    EXPECT_STREQ(message.GetTemplate(), "text");
    message.SetTemplate("long text");
    EXPECT_EQ(Layout(&message), "100-56: 13#1 15#2");
    EXPECT_STREQ(message.GetTemplate(), "long text");
}

TEST(MessageRecordTemplate, LongerOneLeavesADeletedRecordThatACopyDrops) {
    Message message(300, 42, "text");
    message.SetTemplate("longer");
    EXPECT_EQ(Layout(&message), "100-49: 13#1 10#0 12#2");
    const Message copy(message);
    EXPECT_EQ(Layout(&copy), "100-59: 13#1 12#2");
}

TEST(MessageRecordTemplate, TextFromTheMessageItselfIsTaken) {
    Message message(300, 42, "template");
    message << "a longer parameter";
    message.SetTemplate(message.GetTemplate() + 2);
    EXPECT_STREQ(message.GetTemplate(), "mplate");
    message.SetTemplate(message.GetParameter(0));
    EXPECT_STREQ(message.GetTemplate(), "a longer parameter");
    message << message.GetTemplate();
    EXPECT_STREQ(message.GetParameter(1), "a longer parameter");
}

TEST(MessageRecordLocalizedText, EachLanguageHasItsOwn) {
    Message message;
    message.SetLocalizedText(1033, "English");
    message.SetLocalizedText(0, "neutral");
    message.SetLocalizedText(0xFFFF, "last");
    EXPECT_STREQ(message.GetLocalizedText(1033), "English");
    EXPECT_STREQ(message.GetLocalizedText(0), "neutral");
    EXPECT_STREQ(message.GetLocalizedText(0xFFFF), "last");
    EXPECT_EQ(message.GetLocalizedText(1031), nullptr);
}

TEST(MessageRecordLocalizedText, InPlaceAsLongAsTheSpareByteFitsToo) {
    Message message;
    message.SetLocalizedText(1033, "abcd");  // payload 8
    message.SetLocalizedText(1033, "ab");
    EXPECT_EQ(Layout(&message), "100-71: 13#6");
    EXPECT_STREQ(message.GetLocalizedText(1033), "ab");
    message.SetLocalizedText(1033, "abcde");
    EXPECT_EQ(Layout(&message), "100-57: 13#0 14#6");
    EXPECT_STREQ(message.GetLocalizedText(1033), "abcde");
}

TEST(MessageRecordLocalizedText, NullRemovesTheTextOfThatLanguage) {
    Message message;
    message.SetLocalizedText(1, "one");
    message.SetLocalizedText(2, "two");
    message.SetLocalizedText(1, nullptr);
    EXPECT_EQ(message.GetLocalizedText(1), nullptr);
    EXPECT_STREQ(message.GetLocalizedText(2), "two");
    message.SetLocalizedText(3, nullptr);
    EXPECT_EQ(Layout(&message), "100-60: 12#0 12#6");
}

TEST(MessageRecordSwap, EqualCapacitiesExchangeAllBytes) {
    Message one(1, 2, Long(100).c_str());
    Message other(3, 4, "other");
    const std::string oneBytes = Hex(&one, 100);
    const std::string otherBytes = Hex(&other, 100);
    EXPECT_TRUE(one.Swap(other));
    EXPECT_EQ(Hex(&one, 100), otherBytes);
    EXPECT_EQ(Hex(&other, 100), oneBytes);
    EXPECT_TRUE(one.Swap(one));
    EXPECT_EQ(Hex(&one, 100), otherBytes);
}
