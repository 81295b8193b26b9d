#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"

#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

using test::Layout;
using ZBase::Message;

namespace {

std::string Long(std::size_t length) {
    return std::string(length, 'x');
}

}  // namespace

TEST(MessagePlacement, FifteenBytesAreTooFew) {
    unsigned char memory[15];
    EXPECT_TRUE(Message::PlacementPtr(memory, 15).IsNull());
    EXPECT_TRUE(Message::PlacementPtr(memory, 0).IsNull());
    EXPECT_EQ(Message::PlacementPtr(memory, 15, Message()).Get(), nullptr);
    EXPECT_TRUE(Message::PlacementPtr(memory, 15, 300, 42, "text").IsNull());
}

TEST(MessagePlacement, NullMemoryGivesANullHolder) {
    EXPECT_TRUE(Message::PlacementPtr(nullptr, 100).IsNull());
    EXPECT_TRUE(Message::PlacementPtr(nullptr, 100, Message()).IsNull());
    EXPECT_TRUE(Message::PlacementPtr(nullptr, 100, 300, 42, "text").IsNull());
    EXPECT_TRUE(Message::PlacementArrayPtr(nullptr, 250, 100).IsNull());
}

TEST(MessagePlacement, SixteenBytesHoldEverythingInTheHeap) {
    unsigned char memory[16];
    const Message::PlacementPtr holder(memory, 16, 300, 42, "text");
    ASSERT_FALSE(holder.IsNull());
    EXPECT_EQ(static_cast<void*>(holder.Get()), memory);
    EXPECT_EQ(&*holder, holder.Get());
    *holder << "x";
    EXPECT_EQ(Layout(memory), "16-0: | 100-54: 13#1 10#2 7#3");
    EXPECT_STREQ(holder->GetTemplate(), "text");
}

TEST(MessagePlacement, LargerMemoryGivesMoreRoom) {
    std::vector<unsigned char> memory(1000);
    const Message::PlacementPtr holder(memory.data(), 1000, 300, 42, Long(500).c_str());
    EXPECT_EQ(Layout(memory.data()), "1000-465: 13#1 506#2");
    holder->Clear();
    EXPECT_EQ(Layout(memory.data()), "1000-984:");
}

TEST(MessagePlacement, CopyGoesIntoTheMemoryGiven) {
    const Message other(300, 42, "text");
    unsigned char memory[32];
    const Message::PlacementPtr holder(memory, 32, other);
    EXPECT_EQ(Layout(memory), "32-3: 13#1 | 100-74: 10#2");
}

TEST(MessagePlacement, HolderFreesTheChainAndLeavesTheMemory) {
    const std::size_t live = test::LiveBlocks();
    unsigned char memory[17];
    memory[16] = 0xA5;
    {
        const Message::PlacementPtr holder(memory, 16);
        *holder << "one" << Long(100).c_str();
        EXPECT_EQ(test::LiveBlocks(), live + 2);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
    EXPECT_EQ(memory[16], 0xA5);
}

TEST(MessagePlacement, SwapOfUnequalOnesTakesOneBlockAndMovesTheLargerOneToTheHeap) {
    unsigned char memory[64];
    Message large(300, 42, "large");
    const Message::PlacementPtr small(memory, 64, 10, 2, "small");
    const std::size_t before = test::AllocationCount();
    EXPECT_TRUE(large.Swap(*small));
    EXPECT_EQ(test::AllocationCount(), before + 1);
    EXPECT_EQ(Layout(memory), "64-48: | 100-60: 13#1 11#2");
    EXPECT_EQ(Layout(&large), "100-60: 13#1 11#2");
    EXPECT_STREQ(large.GetTemplate(), "small");
    EXPECT_STREQ(small->GetTemplate(), "large");
}

TEST(MessagePlacement, SwapCalledOnTheSmallerOneDoesTheSame) {
    unsigned char memory[64];
    Message large(300, 42, "large");
    const Message::PlacementPtr small(memory, 64, 10, 2, Long(60).c_str());
    EXPECT_EQ(Layout(memory), "64-35: 13#1 | 100-18: 66#2");
    EXPECT_TRUE(small->Swap(large));
    EXPECT_EQ(Layout(memory), "64-48: | 100-60: 13#1 11#2");
    EXPECT_EQ(Layout(&large), "100-71: 13#1 | 100-18: 66#2");
}

TEST(MessagePlacement, SwapWithSixteenBytesLeavesThemWithNothingFree) {
    unsigned char memory[16];
    Message large(300, 42, "large");
    const Message::PlacementPtr small(memory, 16);
    EXPECT_TRUE(small->Swap(large));
    EXPECT_EQ(Layout(memory), "16-0: | 100-60: 13#1 11#2");
    EXPECT_EQ(Layout(&large), "100-84:");
}

TEST(MessagePlacementArray, MemoryForExactlyOneElementIsRefused) {
    unsigned char memory[250];
    EXPECT_TRUE(Message::PlacementArrayPtr(memory, 100, 100).IsNull());
    EXPECT_TRUE(Message::PlacementArrayPtr(memory, 100, 101).IsNull());
    EXPECT_TRUE(Message::PlacementArrayPtr(memory, 250, 15).IsNull());
    EXPECT_TRUE(Message::PlacementArrayPtr(memory, 250, 0).IsNull());
    EXPECT_FALSE(Message::PlacementArrayPtr(memory, 101, 100).IsNull());
}

TEST(MessagePlacementArray, WhatIsLeftOverStaysUntouched) {
    unsigned char memory[250];
    for (unsigned char& byte : memory) byte = 0xA5;
    Message::PlacementArrayPtr array(memory, 250, 100, 300, 42, "text");
    EXPECT_EQ(static_cast<void*>(&array[0]), memory);
    EXPECT_EQ(static_cast<void*>(&array[1]), memory + 100);
    EXPECT_EQ(Layout(memory), "100-61: 13#1 10#2");
    EXPECT_EQ(Layout(memory + 100), "100-61: 13#1 10#2");
    for (std::size_t i = 200; i != 250; ++i) EXPECT_EQ(memory[i], 0xA5);
}

TEST(MessagePlacementArray, ElementsOfSixteenBytesAreWholeMessages) {
    const std::size_t live = test::LiveBlocks();
    {
        unsigned char memory[16 * 5 + 1];
        const Message other(300, 42, "text");
        Message::PlacementArrayPtr array(memory + 1, 16 * 5, 16, other);
        for (unsigned int i = 0; i != 5; ++i) {
            EXPECT_STREQ(array[i].GetTemplate(), "text");
            array[i] << i;
        }
        for (unsigned int i = 0; i != 5; ++i) EXPECT_EQ(array[i].GetParameter(0), std::to_string(i));
        EXPECT_TRUE(array[0].Swap(array[4]));
        EXPECT_STREQ(array[0].GetParameter(0), "4");
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}
