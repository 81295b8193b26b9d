#include "tests/support/MessageBytes.h"

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using test::Layout;
using ZBase::Message;
using namespace ZBase::Literals;

namespace {

// The wide text from its record, read unit by unit from the first even address.
std::u16string StoredWide(const void* message) {
    for (auto at = static_cast<const unsigned char*>(message); at != nullptr; at = test::BlockView(at).next) {
        const test::BlockView block(at);
        for (test::RecordView record = block.First(); record.at != nullptr; record = block.Behind(record)) {
            if (record.tag != 15) continue;
            const unsigned char* text =
                record.Payload() + reinterpret_cast<std::uintptr_t>(record.Payload()) % 2;
            std::u16string units;
            for (; test::Load16(text) != 0; text += 2) units += static_cast<char16_t>(test::Load16(text));
            return units;
        }
    }
    return u"none";
}

std::vector<unsigned short> Units(std::size_t length) {
    std::vector<unsigned short> units(length, 'w');
    units.push_back(0);
    return units;
}

}  // namespace

TEST(MessageWideText, NarrowTwinStandsUnderLanguageZero) {
    Message message;
    message.SetMessage("abc"_w);
    EXPECT_STREQ(message.GetLocalizedText(0), "abc");
    EXPECT_EQ(StoredWide(&message), u"abc");
    EXPECT_EQ(Layout(&message), "100-57: 12#6 15#15");
}

TEST(MessageWideText, TwinIsUtf8) {
    Message message;
    message.SetMessage("\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"_w);
    EXPECT_STREQ(message.GetLocalizedText(0), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(StoredWide(&message), u"\u00E9\u20AC\U0001F600");
}

TEST(MessageWideText, StartsAtTheFirstEvenAddress) {
    alignas(2) unsigned char memory[101];
    for (const std::size_t shift : {0u, 1u}) {
        const Message::PlacementPtr holder(memory + shift, 100);
        holder->SetMessage("abc"_w);
        // The localized text takes 12 bytes, so that the payload starts at 16 + 12 + 5.
        const unsigned char* payload = memory + shift + 33;
        EXPECT_EQ(test::Hex(payload + (shift == 0 ? 1 : 0), 8), "61 00 62 00 63 00 00 00");
    }
}

TEST(MessageWideText, ShorterOneIsWrittenInPlaceAndLongerOneLeavesADeletedRecord) {
    Message message;
    message.SetMessage("abcd"_w);
    message.SetMessage("ab"_w);
    EXPECT_EQ(Layout(&message), "100-54: 13#6 17#15");
    EXPECT_EQ(StoredWide(&message), u"ab");
    message.SetMessage("abcd"_w);
    EXPECT_EQ(Layout(&message), "100-54: 13#6 17#15");
    message.SetMessage("abcde"_w);
    EXPECT_EQ(Layout(&message), "100-21: 13#0 17#0 14#6 19#15");
    EXPECT_EQ(StoredWide(&message), u"abcde");
}

TEST(MessageWideText, NullRemovesBoth) {
    Message message;
    message.SetMessage("abc"_w);
    message.SetMessage(nullptr);
    EXPECT_TRUE(message.IsEmpty());
    message.SetMessage(nullptr);
    EXPECT_EQ(Layout(&message), "100-57: 12#0 15#0");
}

TEST(MessageWideText, EmptyTextIsAText) {
    Message message;
    message.SetMessage(""_w);
    EXPECT_STREQ(message.GetLocalizedText(0), "");
    EXPECT_EQ(StoredWide(&message), u"");
    EXPECT_EQ(Layout(&message), "100-66: 9#6 9#15");
}

TEST(MessageWideText, CopiesThatMoveByOneByteReadTheSame) {
    for (std::size_t from = 0; from != 4; ++from) {
        for (std::size_t to = 0; to != 4; ++to) {
            alignas(8) unsigned char fromMemory[104];
            alignas(8) unsigned char toMemory[104];
            const Message::PlacementPtr source(fromMemory + from, 100, 300, 42, nullptr);
            source->SetMessage("moved text"_w);
            const Message::PlacementPtr copy(toMemory + to, 100, *source);
            EXPECT_EQ(StoredWide(toMemory + to), u"moved text");
            copy->Clear();
            *copy = *source;
            EXPECT_EQ(StoredWide(toMemory + to), u"moved text");
            EXPECT_EQ(test::FindFlaw(toMemory + to), nullptr);
        }
    }
}

TEST(MessageWideText, SwapsThatMoveByOneByteReadTheSame) {
    for (const unsigned int otherSize : {16u, 64u, 100u, 130u}) {
        for (std::size_t from = 0; from != 2; ++from) {
            for (std::size_t to = 0; to != 2; ++to) {
                alignas(8) unsigned char fromMemory[101];
                alignas(8) unsigned char toMemory[131];
                const Message::PlacementPtr one(fromMemory + from, 100);
                const Message::PlacementPtr other(toMemory + to, otherSize);
                one->SetMessage("one"_w);
                other->SetMessage("other text"_w);
                ASSERT_TRUE(one->Swap(*other));
                EXPECT_EQ(StoredWide(one.Get()), u"other text");
                EXPECT_EQ(StoredWide(other.Get()), u"one");
                EXPECT_EQ(test::FindFlaw(one.Get()), nullptr);
                EXPECT_EQ(test::FindFlaw(other.Get()), nullptr);
                ASSERT_TRUE(one->Swap(*other));
                EXPECT_EQ(StoredWide(one.Get()), u"one");
                EXPECT_EQ(StoredWide(other.Get()), u"other text");
            }
        }
    }
}

TEST(MessageWideText, TextFromTheMessageItselfIsTaken) {
    alignas(2) unsigned char memory[400];
    const Message::PlacementPtr holder(memory, 400);
    holder->SetMessage("a text"_w);
    const test::BlockView block(memory);
    const unsigned char* payload = block.Behind(block.First()).Payload();
    const auto* text =
        reinterpret_cast<const unsigned short*>(payload + reinterpret_cast<std::uintptr_t>(payload) % 2);
    holder->SetMessage(text + 2);
    EXPECT_EQ(StoredWide(memory), u"text");
    EXPECT_STREQ(holder->GetLocalizedText(0), "text");
}

TEST(MessageWideText, LongTextGoesToTheHeap) {
    Message message;
    message.SetMessage(Units(100'000).data());
    EXPECT_EQ(StoredWide(&message).size(), 100'000u);
    EXPECT_EQ(std::strlen(message.GetLocalizedText(0)), 100'000u);
    const Message copy(message);
    EXPECT_EQ(StoredWide(&copy).size(), 100'000u);
    EXPECT_EQ(test::FindFlaw(&copy), nullptr);
}

TEST(MessageWideText, BadUnitsAreReplacedInParametersAndTwin) {
    const unsigned short units[] = {'a', 0xFFFE, 'b', 0};
    Message message;
    message << units;
    EXPECT_STREQ(message.GetParameter(0),
                 "a\xEF\xBF\xBD"
                 "b");
    message.SetMessage(units);
    EXPECT_STREQ(message.GetLocalizedText(0),
                 "a\xEF\xBF\xBD"
                 "b");
    EXPECT_EQ(StoredWide(&message),
              u"a\uFFFE"
              u"b");
}

TEST(MessageWideText, LoneSurrogateThrowsBeforeTheMessageIsTouched) {
    const unsigned short lone[] = {'a', 0xD800, 0};
    Message message;
    message.SetMessage("old"_w);
    const std::string before = test::Hex(&message, 100);
    EXPECT_THROW(message.SetMessage(lone), ZBase::StringConversionException);
    EXPECT_THROW(message << lone, ZBase::StringConversionException);
    EXPECT_EQ(test::Hex(&message, 100), before);
}

TEST(MessageWideText, NullParameterIsAnEmptyOne) {
    Message message;
    message << static_cast<const unsigned short*>(nullptr) << "wide"_w;
    EXPECT_STREQ(message.GetParameter(0), "");
    EXPECT_STREQ(message.GetParameter(1), "wide");
}
