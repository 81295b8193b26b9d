#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/frame/WideLiteral.h>
#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <new>
#include <string>

using test::FailingAllocation;
using test::FindFlaw;
using test::Layout;
using ZBase::ConstMessageCursor;
using ZBase::Message;
using ZBase::MessageCursor;
using namespace ZBase::Literals;

namespace {

const char* const kLong =
    "a text that is longer than what a block of one hundred bytes has room for, so that it takes a block of "
    "its own";

int gYields = 0;
int gSleeps = 0;

void Fill(Message& message) {
    message.SetDomainAndID(300, 42);
    message.SetTemplate("Cannot open %1");
    message << "first" << kLong;
    message.WrapBy(300, 43, "middle");
    message.PrependBy(300, 44, "before");
    message.WrapBy(300, 45, "outer");
}

// An operation on a filled message; it may throw `std::bad_alloc` where that is documented.
struct Operation {
    const char* name;
    bool mayThrow;
    void (*run)(Message& message, const Message& other);
};

void WalkReading(const Message& message) {
    ConstMessageCursor cursor(message);
    for (int i = 0; i != 30; ++i) {
        cursor.GoToLowerLevelMessage(i % 3 == 0);
        cursor.GoToSameLevelMessage(i % 5 == 0);
    }
    ConstMessageCursor copy(cursor);
    cursor = copy;
    while (cursor.GoToParent()) {
    }
}

void WalkWriting(Message& message) {
    MessageCursor cursor(message);
    MessageCursor copy(cursor);
    for (int i = 0; i != 30; ++i) {
        cursor.GoToLowerLevelMessage(i % 3 == 0);
        cursor.GetCurrentMessage() << kLong;
        cursor.GoToSameLevelMessage(i % 5 == 0);
    }
    while (cursor.GoToParent()) {
    }
    cursor = copy;
}

const Operation kOperations[] = {
    {"copy", false,
     [](Message&, const Message& other) {
         EXPECT_EQ(FindFlaw(&other), nullptr);
         const Message copy(other);
         EXPECT_EQ(FindFlaw(&copy), nullptr);
     }},
    {"construct", false,
     [](Message&, const Message&) {
         const Message message(300, 42, kLong);
         EXPECT_EQ(message.GetID(), 42);
         EXPECT_EQ(FindFlaw(&message), nullptr);
     }},
    {"assign", false, [](Message& message, const Message& other) { message = other; }},
    {"assign a nested one", false,
     [](Message& message, const Message&) {
         if (const Message* nested = message.GetLowerLevelMessageOrNULL()) message = *nested;
     }},
    {"swap", false,
     [](Message& message, const Message& other) {
         Message copy(other);
         message.Swap(copy);
         EXPECT_EQ(FindFlaw(&copy), nullptr);
     }},
    {"SetDomainAndID", false,
     [](Message& message, const Message&) {
         message.Clear();
         message.SetDomainAndID(1, 2);
     }},
    {"SetTemplate", false, [](Message& message, const Message&) { message.SetTemplate(kLong); }},
    {"SetLocalizedText", false, [](Message& message, const Message&) { message.SetLocalizedText(1, kLong); }},
    {"SetMessage", true, [](Message& message, const Message&) { message.SetMessage("some wide text"_w); }},
    {"parameter", false, [](Message& message, const Message&) { message << kLong << true << ""; }},
    {"number", false,
     [](Message& message, const Message&) { message << 1 << 2u << 3l << Message::Hex << 4ul; }},
    {"wide parameter", true, [](Message& message, const Message&) { message << "wide"_w; }},
    {"WrapBy", false, [](Message& message, const Message&) { message.WrapBy(1, 2, kLong); }},
    {"PrependBy", false, [](Message& message, const Message&) { message.PrependBy(1, 2, kLong); }},
    {"PrependBy a message", false, [](Message& message, const Message& other) { message.PrependBy(other); }},
    {"PrependBy itself", false, [](Message& message, const Message&) { message.PrependBy(message); }},
    {"placement", false,
     [](Message&, const Message& other) {
         unsigned char memory[64];
         const Message::PlacementPtr holder(memory, 64, other);
         EXPECT_EQ(FindFlaw(memory), nullptr);
     }},
    {"placement array", false,
     [](Message&, const Message& other) {
         unsigned char memory[64];
         Message::PlacementArrayPtr array(memory, 64, 16, other);
         for (unsigned int i = 0; i != 4; ++i) EXPECT_EQ(FindFlaw(&array[i]), nullptr);
     }},
    {"reading cursor", true, [](Message& message, const Message&) { WalkReading(message); }},
    {"writing cursor", true, [](Message& message, const Message&) { WalkWriting(message); }},
};

class MessageMemoryOfEachOperation : public testing::TestWithParam<Operation> {};

}  // namespace

TEST_P(MessageMemoryOfEachOperation, StaysWellFormedWhicheverAllocationFails) {
    for (const unsigned int size : {16u, 64u, 100u, 400u}) {
        const std::size_t live = test::LiveBlocks();
        Message other(300, 1, "other");
        Fill(other);
        other << kLong;
        const std::size_t failed = test::ForEachFailingAllocation([&] {
            unsigned char memory[401];
            const Message::PlacementPtr holder(memory + 1, size);
            Fill(*holder);
            EXPECT_EQ(FindFlaw(holder.Get()), nullptr);
            if (GetParam().mayThrow) {
                try {
                    GetParam().run(*holder, other);
                } catch (const std::bad_alloc&) {
                }
            } else {
                GetParam().run(*holder, other);
            }
            EXPECT_EQ(FindFlaw(holder.Get()), nullptr);
            EXPECT_EQ(FindFlaw(&other), nullptr);
        });
        EXPECT_GE(failed, 3u);
        other.Clear();
        EXPECT_EQ(test::LiveBlocks(), live);
    }
}

INSTANTIATE_TEST_SUITE_P(Message, MessageMemoryOfEachOperation, testing::ValuesIn(kOperations),
                         [](const auto& tested) {
                             std::string name = tested.param.name;
                             for (char& character : name)
                                 if (character == ' ') character = '_';
                             return name;
                         });

TEST(MessageMemory, WhatFitsInTheBlockTakesNoHeap) {
    const std::size_t before = test::AllocationCount();
    Message message(300, 42, "Cannot open %1");
    message << "x" << 7 << Message::Hex << 8u << true << 9l;
    message.SetTemplate("open %1");
    const Message copy(message);
    Message assigned;
    assigned = copy;
    assigned.Swap(message);
    assigned.SetDomainAndID(1, 2);
    assigned.Clear();
    assigned.SetLocalizedText(1, "text");
    assigned.SetLocalizedText(1, nullptr);
    assigned.WrapBy(1, 2, "new");
    assigned.Clear();
    assigned.PrependBy(copy);
    alignas(8) unsigned char memory[250];
    { const Message::PlacementPtr holder(memory, 250, copy); }
    { const Message::PlacementArrayPtr array(memory, 250, 100, copy); }
    EXPECT_EQ(test::AllocationCount(), before);
    EXPECT_STREQ(assigned.GetParameter(4), "0x9");
}

TEST(MessageMemory, SwapOfEqualsTakesNoHeap) {
    Message one(1, 2, kLong);
    Message other(3, 4, kLong);
    const std::size_t before = test::AllocationCount();
    EXPECT_TRUE(one.Swap(other));
    EXPECT_EQ(test::AllocationCount(), before);
}

TEST(MessageMemory, SwapWithoutMemoryChangesNeither) {
    unsigned char memory[64];
    Message large(300, 42, kLong);
    const Message::PlacementPtr small(memory, 64, 10, 2, "small");
    const std::string largeBytes = test::Hex(&large, 100);
    const std::string smallBytes = test::Hex(memory, 64);
    bool swapped = true;
    {
        const FailingAllocation failing(0);
        swapped = large.Swap(*small);
    }
    EXPECT_FALSE(swapped);
    EXPECT_EQ(test::Hex(&large, 100), largeBytes);
    EXPECT_EQ(test::Hex(memory, 64), smallBytes);
}

TEST(MessageMemory, ParameterWithoutMemoryIsReplacedByAnEmptyOne) {
    Message message;
    message << "first";
    {
        const FailingAllocation failing(0);
        message << kLong;
    }
    message << "third";
    EXPECT_EQ(Layout(&message), "100-56: 11#3 6#3 11#3");
    EXPECT_STREQ(message.GetParameter(1), "");
    EXPECT_STREQ(message.GetParameter(2), "third");
}

// Both replace the system's own, to record the library's calls.
extern "C" [[gnu::visibility("default")]] int sched_yield() noexcept {
    ++gYields;
    return 0;
}
extern "C" [[gnu::visibility("default")]] int nanosleep(const timespec*, timespec*) {
    ++gSleeps;
    return 0;
}

TEST(MessageMemory, ParameterThatWaitsForMemoryLetsOtherThreadsRun) {
    unsigned char memory[16];
    const Message::PlacementPtr holder(memory, 16);
    gYields = gSleeps = 0;
    {
        const FailingAllocation failing(0, 150);
        *holder << "a text that finds no place";
    }
    // One try with the text, 149 with none, each followed by a pause.
    EXPECT_EQ(gYields, 100);
    EXPECT_EQ(gSleeps, 49);
    *holder << "next";
    EXPECT_STREQ(holder->GetParameter(0), "");
    EXPECT_STREQ(holder->GetParameter(1), "next");
    gYields = gSleeps = 0;
    *holder << kLong << "";
    EXPECT_EQ(gYields + gSleeps, 0);
}

TEST(MessageMemory, TextWithoutMemoryIsLostWithTheOldOne) {
    Message message(300, 42, "old");
    message.SetLocalizedText(1, "old");
    {
        const FailingAllocation failing(0);
        message.SetTemplate(kLong);
    }
    {
        const FailingAllocation failing(0);
        message.SetLocalizedText(1, kLong);
    }
    EXPECT_EQ(message.GetTemplate(), nullptr);
    EXPECT_EQ(message.GetLocalizedText(1), nullptr);
    EXPECT_EQ(message.GetID(), 42);
    EXPECT_EQ(Layout(&message), "100-50: 13#1 9#0 12#0");
}

TEST(MessageMemory, HeaderWithoutMemoryTakesTheTemplateAlong) {
    unsigned char memory[16];
    const FailingAllocation failing(0);
    const Message::PlacementPtr holder(memory, 16, 300, 42, "text");
    EXPECT_TRUE(holder->IsEmpty());
    EXPECT_EQ(holder->GetID(), 0);
}

TEST(MessageMemory, TemplateWithoutMemoryLeavesTheHeader) {
    const FailingAllocation failing(0);
    const Message message(300, 42, kLong);
    EXPECT_EQ(message.GetID(), 42);
    EXPECT_EQ(message.GetTemplate(), nullptr);
}

TEST(MessageMemory, CopyWithoutMemoryKeepsWhatWasCopied) {
    Message message(300, 42, "text");
    message << "one" << kLong << "three";
    const FailingAllocation failing(0);
    const Message copy(message);
    EXPECT_EQ(copy.GetID(), 42);
    EXPECT_STREQ(copy.GetParameter(0), "one");
    EXPECT_EQ(copy.GetParameter(1), nullptr);
}

TEST(MessageMemory, WrapWithoutMemoryForTheSwapChangesNothing) {
    Message message(300, 42, "text");
    const std::string bytes = test::Hex(&message, 100);
    {
        const FailingAllocation failing(0);
        message.WrapBy(1, 2, "outer");
    }
    EXPECT_EQ(test::Hex(&message, 100), bytes);
    {
        const FailingAllocation failing(0);
        message.PrependBy(Message(1, 2, "before"));
    }
    EXPECT_EQ(test::Hex(&message, 100), bytes);
}

TEST(MessageMemory, WrapWithoutMemoryForTheImageLosesTheContentAlone) {
    Message message(300, 42, "text that is long enough to need a block for its image");
    {
        const FailingAllocation failing(1);
        message.WrapBy(1, 2, "outer");
    }
    EXPECT_EQ(Layout(&message), "100-60: 13#1 11#2");
}

TEST(MessageMemory, WritingCursorWithoutMemoryStaysAndKeepsTheBranch) {
    Message message(300, 42, kLong);
    message << kLong << kLong;
    message.WrapBy(300, 43, "outer");
    const auto before = test::ModelMessage::Read(&message);
    MessageCursor cursor(message);
    for (std::size_t index = 0; index != 4; ++index) {
        bool moved = true;
        bool failed = true;
        {
            const FailingAllocation failing(index);
            moved = cursor.GoToLowerLevelMessage(false);
            failed = failing.HasFailed();
        }
        ASSERT_TRUE(failed);
        EXPECT_FALSE(moved);
        EXPECT_TRUE(cursor.LowerLevelMessageIsUnvisited());
        EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
        EXPECT_EQ(test::ModelMessage::Read(&message), before);
    }
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_STREQ(cursor.GetCurrentMessage().GetParameter(1), kLong);
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_STREQ(message.GetLowerLevelMessageOrNULL()->GetParameter(1), kLong);
}

TEST(MessageMemory, PackingWithoutMemoryLosesTheLevelAlone) {
    Message message(300, 42, kLong);
    message.WrapBy(300, 43, "outer");
    MessageCursor cursor(message);
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    cursor.GetCurrentMessage() << kLong;
    bool moved = false;
    {
        const FailingAllocation failing(0);
        moved = cursor.GoToParent();
    }
    EXPECT_TRUE(moved);
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_STREQ(message.GetTemplate(), "outer");
    EXPECT_FALSE(cursor.GoToParent());
}

TEST(MessageMemory, ReadingCursorWithoutMemoryStays) {
    Message message;
    ConstMessageCursor cursor(message);
    int steps = 0;
    bool failed = false;
    while (!failed) {  // the stack takes memory every few steps
        const FailingAllocation failing(0);
        if (cursor.GoToLowerLevelMessage(true)) ++steps;
        failed = failing.HasFailed();
    }
    EXPECT_EQ(cursor.GetCurrentOffset().lower_level_offset, steps);
    EXPECT_TRUE(cursor.GoToSameLevelMessage(true));
    EXPECT_EQ(cursor.GetCurrentOffset().same_level_offset, 1);
    while (cursor.GoToParent()) {
    }
    EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
}

TEST(MessageMemory, CursorsThrowOnlyWhereTheirStateIsMade) {
    Message message;
    const std::size_t live = test::LiveBlocks();
    {
        const FailingAllocation failing(0);
        EXPECT_THROW(ConstMessageCursor cursor(message), std::bad_alloc);
    }
    {
        const FailingAllocation failing(0);
        EXPECT_THROW(MessageCursor cursor(message), std::bad_alloc);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST(MessageMemory, WideTextWithoutMemoryForTheTwinLeavesTheMessageAlone) {
    Message message(300, 42, "text");
    const std::string bytes = test::Hex(&message, 100);
    bool thrown = false;
    {
        const FailingAllocation failing(0);
        try {
            message.SetMessage("wide"_w);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(test::Hex(&message, 100), bytes);
}

TEST(MessageMemory, TextKeptOnAMissingMessageGoesWithItsCursor) {
    const Message message(1, 1, "alone");
    const std::size_t live = test::LiveBlocks();
    {
        ConstMessageCursor cursor(message);
        ASSERT_TRUE(cursor.GoToLowerLevelMessage(true));
        ASSERT_NE(cursor.GetCurrentMessage().GetMessage(), nullptr);
        ConstMessageCursor copy(cursor);
        ASSERT_TRUE(copy.GoToLowerLevelMessage(true));
        ASSERT_NE(copy.GetCurrentMessage().GetMessage(), nullptr);
        ConstMessageCursor assigned(message);
        assigned = cursor;
        EXPECT_EQ(&assigned.GetCurrentMessage(), &cursor.GetCurrentMessage());
        copy = cursor;
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}
