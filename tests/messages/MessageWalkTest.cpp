#include "tests/support/Allocations.h"
#include "tests/support/MessageTrees.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/MessageWalk.h>

#include <gtest/gtest.h>

#include <iterator>
#include <new>
#include <ranges>
#include <string>
#include <type_traits>

using ZBase::EMessageRelation;
using ZBase::Message;
using ZBase::MessageVisit;
using ZBase::MessageWalk;

namespace {

static_assert(std::input_iterator<MessageWalk::Iterator>);
static_assert(std::ranges::input_range<MessageWalk>);
static_assert(!std::is_constructible_v<MessageWalk, Message>);

// "id:number<parent@level" of each message, with a letter for how it was reached.
std::string Tell(const Message& root) {
    std::string told;
    for (const MessageVisit& visit : MessageWalk(root)) {
        const char relation = "rls"[static_cast<int>(visit.relation)];
        told += std::to_string(visit.message->GetID()) + ":" + std::to_string(visit.number) + "<" +
                std::to_string(visit.parent) + "@" + std::to_string(visit.level) + relation + " ";
    }
    return told;
}

// The addresses and levels of a cursor's walk.
std::string ByCursor(const Message& root) {
    std::string told;
    ZBase::ConstMessageCursor cursor(root);
    for (;;) {
        told += std::to_string(reinterpret_cast<std::uintptr_t>(&cursor.GetCurrentMessage())) + "@" +
                std::to_string(cursor.GetCurrentOffset().lower_level_offset) + " ";
        if (cursor.LowerLevelMessageIsUnvisited()) {
            cursor.GoToLowerLevelMessage(false);
            continue;
        }
        while (!cursor.SameLevelMessageIsUnvisited()) {
            if (!cursor.GoToParent()) return told;
        }
        cursor.GoToSameLevelMessage(false);
    }
}

std::string ByWalk(const Message& root) {
    std::string told;
    for (const MessageVisit& visit : MessageWalk(root))
        told += std::to_string(reinterpret_cast<std::uintptr_t>(visit.message)) + "@" +
                std::to_string(visit.level) + " ";
    return told;
}

}  // namespace

TEST(MessageWalk, OfASingleMessageMeetsTheRoot) {
    const Message single(300, 5, nullptr);
    EXPECT_EQ(Tell(single), "5:0<0@0r ");
    const Message empty;
    EXPECT_EQ(Tell(empty), "0:0<0@0r ");
}

TEST(MessageWalk, MeetsLowerLevelsBeforeWhatFollows) {
    Message message(300, 1, nullptr);
    message.WrapBy(300, 2, nullptr);  // 2 > 1
    Message other(300, 3, nullptr);
    other.WrapBy(300, 4, nullptr);  // 4 > 3
    message.PrependBy(other);       // 4 > 3, then 2 > 1
    message.WrapBy(300, 9, nullptr);
    EXPECT_EQ(Tell(message), "9:0<0@0r 4:1<0@1l 3:2<1@2l 2:3<1@1s 1:4<3@2l ");
}

TEST(MessageWalk, GoesTheWayOfACursorThroughAnyTree) {
    for (unsigned int seed = 0; seed != 30; ++seed) {
        Message message;
        test::FillAtRandom(message, seed);
        EXPECT_EQ(ByWalk(message), ByCursor(message)) << seed;
    }
}

TEST(MessageWalk, BeginsAnewEachTime) {
    Message message(300, 1, nullptr);
    message.WrapBy(300, 2, nullptr);
    MessageWalk walk(message);
    EXPECT_EQ(std::ranges::distance(walk), 2);
    EXPECT_EQ(std::ranges::distance(walk), 2);
}

TEST(MessageWalk, TakesNoMemoryForALineOfCausesNorForAList) {
    Message causes(300, 1, nullptr);
    Message list(300, 1, nullptr);
    for (int i = 0; i != 500; ++i) {
        causes.WrapBy(300, i, nullptr);
        list.PrependBy(300, i, nullptr);
    }
    MessageWalk walk(causes);
    const std::size_t before = test::AllocatedBytes();
    EXPECT_EQ(std::ranges::distance(walk), 501);
    EXPECT_EQ(test::AllocatedBytes(), before);
    MessageWalk along(list);
    EXPECT_EQ(std::ranges::distance(along), 501);
    EXPECT_LE(test::AllocatedBytes() - before, 100u);  // memory for one message still to come
}

TEST(MessageWalk, AStepWithoutMemoryMayBeTakenAgain) {
    Message message(300, 1, nullptr);
    message.PrependBy(300, 2, nullptr);
    MessageWalk walk(message);
    auto at = walk.begin();
    {
        const test::FailingAllocation failing(0);
        EXPECT_THROW(++at, std::bad_alloc);
    }
    EXPECT_EQ(at->message->GetID(), 2);
    EXPECT_EQ((++at)->message->GetID(), 1);
}
