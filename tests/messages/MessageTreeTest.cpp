#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

using test::Layout;
using ZBase::Message;

namespace {

std::string Long(std::size_t length) {
    return std::string(length, 'x');
}

// The templates along a level, in reading order: "X Y M".
std::string ReadLevel(const Message& message) {
    std::string text;
    for (const Message* at = &message; at != nullptr; at = at->GetSameLevelMessageOrNULL()) {
        if (!text.empty()) text += ' ';
        text += at->GetTemplate() == nullptr ? "-" : at->GetTemplate();
    }
    return text;
}

Message Level(const char* first, const char* second, const char* third = nullptr) {
    Message message(1, 1, third == nullptr ? second : third);
    if (third != nullptr) message.PrependBy(1, 1, second);
    message.PrependBy(1, 1, first);
    return message;
}

}  // namespace

TEST(MessageTree, WrapLaysTheOldContentInOneRecordToTheByte) {
    Message message(300, 42, "Cannot open %1");
    message << "x";
    EXPECT_EQ(&message.WrapBy(300, 43, "Outer"), &message);
    const test::BlockView first(&message);
    const std::string records =
        "0d 00 00 00 01 2b 00 00 00 2c 01 0a 00 "  // header
        "0b 00 00 00 02 4f 75 74 65 72 00";        // template
    EXPECT_EQ(test::Hex(&message, 8), "64 00 00 00 3c 00 00 00");
    EXPECT_EQ(test::Hex(first.at + 16, 24), records);
    ASSERT_NE(first.next, nullptr);
    const std::string nested =
        "64 00 00 00 17 00 00 00 00 00 00 00 00 00 00 00 "              // heap block
        "3d 00 00 00 05 "                                               // record of 61 bytes
        "38 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "              // nested block of 56
        "0d 00 00 00 01 2a 00 00 00 2c 01 0a 00 "                       // header
        "14 00 00 00 02 43 61 6e 6e 6f 74 20 6f 70 65 6e 20 25 31 00 "  // template
        "07 00 00 00 03 78 00";                                         // parameter
    EXPECT_EQ(test::Hex(first.next, 77), nested);
    EXPECT_EQ(reinterpret_cast<const unsigned char*>(message.GetLowerLevelMessageOrNULL()), first.next + 21);
}

TEST(MessageTree, PrependByANewMessageDiffersFromWrapInTheTagAlone) {
    Message wrapped(300, 42, "Cannot open %1");
    wrapped.WrapBy(300, 43, "Outer");
    Message prepended(300, 42, "Cannot open %1");
    prepended.PrependBy(300, 43, "Outer");
    EXPECT_EQ(Layout(&wrapped), "100-6: 13#1 11#2 54#5");
    EXPECT_EQ(Layout(&prepended), "100-6: 13#1 11#2 54#4");
    EXPECT_EQ(prepended.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_STREQ(prepended.GetSameLevelMessageOrNULL()->GetTemplate(), "Cannot open %1");
}

TEST(MessageTree, WrapOfAnEmptyMessageNestsNothing) {
    Message message;
    message.WrapBy(300, 43, "Outer");
    EXPECT_EQ(Layout(&message), "100-60: 13#1 11#2");
    Message deleted;
    deleted.SetTemplate("gone");
    deleted.SetTemplate(nullptr);
    deleted.PrependBy(300, 43, nullptr);
    EXPECT_EQ(Layout(&deleted), "100-61: 10#0 13#1");
}

TEST(MessageTree, ContentWrappedTwiceSitsTwoLevelsDown) {
    Message message(300, 42, "inner");
    message << "x";
    message.WrapBy(300, 43, "middle").WrapBy(300, 44, "outer");
    EXPECT_EQ(message.GetID(), 44);
    EXPECT_EQ(message.GetParameter(0), nullptr);
    const Message* middle = message.GetLowerLevelMessageOrNULL();
    ASSERT_NE(middle, nullptr);
    EXPECT_STREQ(middle->GetTemplate(), "middle");
    const Message* inner = middle->GetLowerLevelMessageOrNULL();
    ASSERT_NE(inner, nullptr);
    EXPECT_STREQ(inner->GetTemplate(), "inner");
    EXPECT_STREQ(inner->GetParameter(0), "x");
    EXPECT_EQ(inner->GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

TEST(MessageTree, WrapKeepsTheCapacityOfSixteenBytes) {
    unsigned char memory[16];
    const Message::PlacementPtr holder(memory, 16, 300, 42, "inner");
    holder->WrapBy(300, 43, "outer");
    // nested record: 5 + 16 + 13 + 11 = 45
    EXPECT_EQ(Layout(memory), "16-0: | 100-15: 13#1 11#2 45#5");
    EXPECT_STREQ(holder->GetLowerLevelMessageOrNULL()->GetTemplate(), "inner");
}

TEST(MessageTree, ImageTooLargeForTheBlockTakesOneHeapBlock) {
    Message message(300, 42, Long(100).c_str());
    message.WrapBy(300, 43, "outer");
    // 5 + 16 + 13 + 106 = 140, and a block of 16 more
    EXPECT_EQ(Layout(&message), "100-60: 13#1 11#2 | 156-0: 140#5");
}

TEST(MessageTree, WrapDropsWideTextAndDeletedRecords) {
    const unsigned short wide[] = {'w', 0};
    Message message(300, 42, "old");
    message.SetMessage(wide);
    message.SetTemplate("longer");
    EXPECT_EQ(Layout(&message), "100-29: 13#1 9#0 10#6 11#15 12#2");
    message.WrapBy(300, 43, nullptr);
    const auto nested = test::ModelMessage::Read(message.GetLowerLevelMessageOrNULL());
    EXPECT_EQ(nested.ToText(), "[51-0 13#1:300,42 10#6:0'w' 12#2'longer']");
}

TEST(MessageTree, TemplateTakenFromTheMessageThatIsWrapped) {
    for (const std::size_t length : {std::size_t{5}, std::size_t{70}, std::size_t{300}}) {
        Message message(300, 42, Long(length).c_str());
        message.WrapBy(300, 43, message.GetTemplate());
        EXPECT_EQ(message.GetTemplate(), Long(length));
        EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetTemplate(), Long(length));
    }
}

TEST(MessageTree, PrependOnAnEmptyMessageIsAssignment) {
    Message message;
    message.PrependBy(Level("X", "Y"));
    EXPECT_EQ(ReadLevel(message), "X Y");
    Message assigned;
    assigned = Level("X", "Y");
    EXPECT_EQ(test::ModelMessage::Read(&message), test::ModelMessage::Read(&assigned));
}

TEST(MessageTree, PrependReadsOtherThenItsLevelThenTheOldContent) {
    Message message(1, 1, "M");
    EXPECT_EQ(&message.PrependBy(Level("X", "Y")), &message);
    EXPECT_EQ(ReadLevel(message), "X Y M");
    message.PrependBy(Level("A", "B", "C"));
    EXPECT_EQ(ReadLevel(message), "A B C X Y M");
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

TEST(MessageTree, PrependBringsTheLowerLevelOfOtherAlong) {
    Message other(1, 1, "cause");
    other.WrapBy(1, 2, "X");
    Message message(1, 1, "M");
    message.PrependBy(other);
    EXPECT_EQ(ReadLevel(message), "X M");
    EXPECT_STREQ(message.GetLowerLevelMessageOrNULL()->GetTemplate(), "cause");
}

TEST(MessageTree, PrependOfAnEmptyMessageLeavesABareTopLevel) {
    Message message(300, 42, "M");
    message << "x";
    message.PrependBy(Message());
    EXPECT_EQ(message.GetDomain(), 0);
    EXPECT_EQ(message.GetID(), 0);
    EXPECT_EQ(message.GetTemplate(), nullptr);
    EXPECT_EQ(message.GetParameter(0), nullptr);
    EXPECT_FALSE(message.IsEmpty());
    EXPECT_STREQ(message.GetSameLevelMessageOrNULL()->GetTemplate(), "M");
}

TEST(MessageTree, PrependOfItselfReadsTwice) {
    Message message = Level("X", "Y");
    message.PrependBy(message);
    EXPECT_EQ(ReadLevel(message), "X Y X Y");
    Message empty;
    empty.PrependBy(empty);
    EXPECT_TRUE(empty.IsEmpty());
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

TEST(MessageTree, PrependOfANestedMessageReadsItTwice) {
    Message message = Level("X", "Y", "Z");
    message.PrependBy(*message.GetSameLevelMessageOrNULL());
    EXPECT_EQ(ReadLevel(message), "Y Z X Y Z");
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

// Messages of many sizes, so that the nested record is placed before or after their last records.
TEST(MessageTree, PrependedLevelHasTheBytesOfPrependingOneByOne) {
    for (unsigned int seed = 0; seed != 300; ++seed) {
        std::mt19937 random(seed);
        const auto below = [&](unsigned int limit) { return static_cast<unsigned int>(random() % limit); };
        const unsigned int sizes[] = {16, 17, 64, 100, 100, 301, 1000};
        const unsigned int size = sizes[below(7)];
        std::vector<unsigned char> memory(size + 1);
        const Message::PlacementPtr holder(memory.data() + below(2), size, 2, 2, Long(below(120)).c_str());
        for (unsigned int i = below(4); i != 0; --i) *holder << Long(below(90)).c_str();
        if (below(2) == 0) holder->WrapBy(1, 1, "wrapper");
        if (below(2) == 0) holder->PrependBy(1, 1, "before");
        Message other(1, 0, nullptr);
        for (unsigned int i = 1 + below(12); i != 0; --i) {
            other.PrependBy(1, static_cast<int>(i), below(2) == 0 ? nullptr : Long(below(130)).c_str());
            for (unsigned int k = below(4); k != 0; --k) other << Long(below(90)).c_str();
            if (below(4) == 0) other.SetTemplate(Long(below(300)).c_str());
            if (below(4) == 0) other.SetLocalizedText(7, Long(below(100)).c_str());
            if (below(4) == 0) other.GetMessage();
            if (below(8) == 0) other.WrapBy(1, 9, "cause").PrependBy(1, 10, "in front");
        }
        test::ModelMessage model = test::ModelMessage::Read(holder.Get());
        model.Prepend(test::ModelMessage::Read(&other));
        holder->PrependBy(other);
        ASSERT_EQ(test::FindFlaw(holder.Get()), nullptr) << seed;
        ASSERT_EQ(test::ModelMessage::Read(holder.Get()).ToText(), model.ToText()) << seed;
    }
}

TEST(MessageTree, LevelOfTwoHundredThousandIsPrependedAtOnce) {
    // Prepended to itself it doubles. One by one it would be copied once for each of its messages.
    constexpr int kDoublings = 18;
    Message level(1, 7, "one of many");
    for (int i = 0; i != kDoublings; ++i) level.PrependBy(level);
    Message message(2, 2, "M");
    const std::size_t allocations = test::AllocationCount();
    const std::size_t bytes = test::AllocatedBytes();
    message.PrependBy(level);
    EXPECT_LE(test::AllocationCount() - allocations, 2u);
    EXPECT_LE(test::AllocatedBytes() - bytes, 60u << kDoublings);
    int count = 0;
    const Message* at = &message;
    for (; at->GetSameLevelMessageOrNULL() != nullptr; at = at->GetSameLevelMessageOrNULL(), ++count)
        ASSERT_EQ(at->GetID(), 7);
    EXPECT_EQ(count, 1 << kDoublings);
    EXPECT_STREQ(at->GetTemplate(), "M");
}

TEST(MessageTree, WrapInLargeMemoryTakesWhatIsUsedAndNoMore) {
    constexpr unsigned int kSize = 1u << 20;
    std::vector<unsigned char> memory(kSize, 0xA5);
    const Message::PlacementPtr holder(memory.data(), kSize, 300, 42, "inner");
    *holder << Long(200).c_str();
    const std::size_t bytes = test::AllocatedBytes();
    holder->WrapBy(300, 43, "outer");
    holder->PrependBy(300, 44, "before");
    holder->PrependBy(Message(300, 45, "first"));
    EXPECT_LE(test::AllocatedBytes() - bytes, 1200u);
    // 21 + 13 + 11 + 206 = 251, 21 + 13 + 11 + 251 = 296, 21 + 13 + 12 + 296 = 342
    EXPECT_EQ(Layout(memory.data()), "1048576-1048194: 13#1 11#2 342#4");
    EXPECT_EQ(test::FindFlaw(memory.data()), nullptr);
    for (std::size_t i = 700; i != kSize; ++i) ASSERT_EQ(memory[i], 0xA5) << i;
}
