#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

using test::AllocationCount;
using test::FindFlaw;
using test::Layout;
using ZBase::Message;
using namespace ZBase::Literals;

namespace {

const std::string kLong(300, 'x');

Message Filled() {
    Message message(300, 42, "Cannot open %1");
    message << kLong.c_str();
    message.SetMessage("wide text of an odd and an even place"_w);
    message.WrapBy(300, 43, "outer");
    message.SetMessage("outer"_w);
    return message;
}

}  // namespace

TEST(MessageMove, WhatCantThrowSaysSo) {
    EXPECT_TRUE(std::is_nothrow_default_constructible_v<Message>);
    EXPECT_TRUE((std::is_nothrow_constructible_v<Message, unsigned short, int, const char*>));
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<Message>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<Message>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Message>);
    EXPECT_TRUE(std::is_nothrow_move_assignable_v<Message>);
    using Thrown = ZBase::ExceptionImpl<ZBase::BufferException>;
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<Thrown>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Thrown>);
}

TEST(MessageMove, TakesTheChainAndAllocatesNothing) {
    Message source = Filled();
    const std::string bytes = test::DescribeTree(source);
    const std::string layout = Layout(&source);
    const char* const text = source.GetLowerLevelMessageOrNULL()->GetParameter(0);
    const std::size_t before = AllocationCount();
    Message target(std::move(source));
    EXPECT_EQ(AllocationCount(), before);
    EXPECT_EQ(Layout(&target), layout);
    EXPECT_EQ(target.GetLowerLevelMessageOrNULL()->GetParameter(0), text);
    EXPECT_EQ(test::DescribeTree(target), bytes);
    EXPECT_TRUE(source.IsEmpty());
    EXPECT_EQ(Layout(&source), "100-84:");
    source << "goes on";
    EXPECT_STREQ(source.GetParameter(0), "goes on");
}

TEST(MessageMove, AnAssignmentDropsWhatWasThere) {
    const std::size_t blocks = test::LiveBlocks();
    {
        Message target = Filled();
        Message source(300, 7, "small");
        target = std::move(source);
        EXPECT_EQ(target.GetID(), 7);
        EXPECT_EQ(target.GetLowerLevelMessageOrNULL(), nullptr);
        EXPECT_TRUE(source.IsEmpty());
    }
    EXPECT_EQ(test::LiveBlocks(), blocks);
}

TEST(MessageMove, ToItselfItEmptiesLikeAnAssignment) {
    Message message = Filled();
    Message& same = message;
    message = std::move(same);
    EXPECT_TRUE(message.IsEmpty());
    EXPECT_EQ(FindFlaw(&message), nullptr);
}

TEST(MessageMove, WhatIsNestedInTheTargetArrives) {
    Message message = Filled();
    auto& nested = const_cast<Message&>(*message.GetLowerLevelMessageOrNULL());
    message = std::move(nested);
    EXPECT_EQ(message.GetID(), 42);
    EXPECT_EQ(message.GetParameter(0), kLong);
    EXPECT_EQ(FindFlaw(&message), nullptr);
}

TEST(MessageMove, WideTextMovesBetweenEvenAndOddAddresses) {
    unsigned char memory[2][101];
    for (unsigned int from = 0; from != 2; ++from) {
        for (unsigned int to = 0; to != 2; ++to) {
            const Message::PlacementPtr source(memory[0] + from, 100);
            source->SetMessage("wide"_w);
            const Message::PlacementPtr target(memory[1] + to, 100);
            *target = std::move(*source);
            EXPECT_EQ(std::memcmp(target->GetMessage(), "wide"_w, 10), 0) << from << to;
            EXPECT_EQ(FindFlaw(target.Get()), nullptr);
        }
    }
}

TEST(MessageMove, BetweenMemoriesOfAnySizeNothingIsLost) {
    unsigned char sourceMemory[1000];
    unsigned char targetMemory[1000];
    for (const unsigned int sourceSize : {16u, 40u, 100u, 1000u}) {
        for (const unsigned int targetSize : {16u, 40u, 100u, 1000u}) {
            const std::size_t blocks = test::LiveBlocks();
            {
                const Message::PlacementPtr source(sourceMemory, sourceSize, Filled());
                const Message::PlacementPtr target(targetMemory, targetSize);
                const std::string said = test::DescribeTree(*source);
                *target = std::move(*source);
                EXPECT_EQ(test::DescribeTree(*target), said) << sourceSize << " to " << targetSize;
                EXPECT_TRUE(source->IsEmpty());
                EXPECT_EQ(FindFlaw(target.Get()), nullptr);
                EXPECT_EQ(FindFlaw(source.Get()), nullptr);
            }
            EXPECT_EQ(test::LiveBlocks(), blocks);
        }
    }
}

TEST(MessageMove, WithoutMemoryForACopyTheSourceKeepsItsContent) {
    unsigned char memory[1000];
    Message content(300, 42, kLong.c_str());
    content << "a parameter" << kLong;
    const std::string said = test::DescribeTree(content);
    for (std::size_t index = 0; index != 4; ++index) {
        const Message::PlacementPtr source(memory, sizeof memory, content);
        Message target;
        bool hasFailed = false;
        {
            const test::FailingAllocation failing(index);
            target = std::move(*source);
            hasFailed = failing.HasFailed();
        }
        EXPECT_EQ(hasFailed, index < 3);
        EXPECT_EQ(FindFlaw(&target), nullptr);
        EXPECT_EQ(FindFlaw(source.Get()), nullptr);
        EXPECT_EQ(test::DescribeTree(hasFailed ? *source : target), said);
        EXPECT_EQ(source->IsEmpty(), !hasFailed);
    }
}

TEST(MessageMoveIntoAnException, IsThrownAsTheTypeAndSaysTheSame) {
    const Message message = Filled();
    try {
        throw ZBase::ExceptionImpl<ZBase::BufferException>(message);
    } catch (const ZBase::BufferException& failure) {
        EXPECT_EQ(test::DescribeTree(failure), test::DescribeTree(message));
    }
}

TEST(MessageMoveIntoAnException, TakesTheContentOfOneThatIsMoved) {
    Message message = Filled();
    const std::string said = test::DescribeTree(message);
    const std::size_t before = AllocationCount();
    const ZBase::ExceptionImpl<Message> failure(std::move(message));
    EXPECT_EQ(AllocationCount(), before);
    EXPECT_EQ(test::DescribeTree(failure), said);
    EXPECT_TRUE(message.IsEmpty());
}

TEST(MessageMoveIntoAnException, IsMadeOnPurposeOnly) {
    EXPECT_FALSE((std::is_convertible_v<Message, ZBase::ExceptionImpl<ZBase::BufferException>>));
}
