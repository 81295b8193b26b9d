#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/SimpleMessageLocalizer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

using ZBase::ConstMessageCursor;
using ZBase::Message;
using ZBase::MessageCursor;

namespace {

// A chain of three levels down, each followed by a message.
Message Tree(const std::string& name) {
    Message tree(1, 1, (name + " 3").c_str());
    for (const char* level : {" 2", " 1", " 0"}) {
        Message behind(1, 1, (name + level + " behind").c_str());
        behind.PrependBy(tree);
        tree = behind;
        tree.WrapBy(1, 1, (name + level).c_str());
    }
    return tree;
}

std::string TemplateOf(const Message* message) {
    if (message == nullptr) return "none";
    return message->GetTemplate() == nullptr ? "" : message->GetTemplate();
}

test::ModelMessage Compact(const Message& message) {
    const Message copy(message);
    return test::ModelMessage::Read(&copy);
}

struct Rewriting {
    const char* name;
    void (*run)(Message& message, Message& other);
    bool isAddition = false;  // visited branches stay visited
};

const Rewriting kRewritings[] = {
    {"Clear", [](Message& message, Message&) { message.Clear(); }},
    {"Assign", [](Message& message, Message& other) { message = other; }},
    {"AssignItself", [](Message& message, Message&) { message = *&message; }},
    {"AssignNested",
     [](Message& message, Message&) {
         const Message* lower = message.GetLowerLevelMessageOrNULL();
         const Message* nested = lower == nullptr ? message.GetSameLevelMessageOrNULL() : lower;
         if (nested != nullptr) message = *nested;
     }},
    {"AssignCopyOfItself", [](Message& message, Message&) { message = Message(message); }},
    {"Swap", [](Message& message, Message& other) { EXPECT_TRUE(message.Swap(other)); }},
    {"SwapCalledOnTheOther", [](Message& message, Message& other) { EXPECT_TRUE(other.Swap(message)); }},
    {"SwapWithSixteenBytes",
     [](Message& message, Message& other) {
         unsigned char memory[16];
         const Message::PlacementPtr small(memory, 16, other);
         EXPECT_TRUE(message.Swap(*small));
     }},
    {"WrapBy", [](Message& message, Message&) { message.WrapBy(1, 2, "wrapped"); }},
    {"WrapTwice", [](Message& message, Message&) { message.WrapBy(1, 2, "once").WrapBy(1, 2, "twice"); }},
    {"PrependBy", [](Message& message, Message&) { message.PrependBy(1, 2, "before"); }},
    {"PrependByMessage", [](Message& message, Message& other) { message.PrependBy(other); }},
    {"PrependByItself", [](Message& message, Message&) { message.PrependBy(message); }},
    {"ClearAndFill",
     [](Message& message, Message&) {
         message.Clear();
         message << "one";
         message.WrapBy(1, 2, "filled").PrependBy(1, 2, "in front");
     }},
    {"WalkByAnotherCursor",
     [](Message& message, Message&) {
         MessageCursor cursor(message);
         while (cursor.GoToLowerLevelMessage(false) || cursor.GoToSameLevelMessage(false)) {
         }
         while (cursor.GoToParent()) {
         }
     },
     true},
    {"Format",
     [](Message& message, Message&) {
         ZBase::SimpleMessageLocalizer localizer;
         EXPECT_NE(FormatMessage(message, 0, localizer).GetLength(), 0u);
     },
     true},
};

class MessageCursorRewritingOfALevel : public testing::TestWithParam<Rewriting> {};

}  // namespace

// At each depth, before any step and after steps to both sides, and each step with and without `create`.
TEST_P(MessageCursorRewritingOfALevel, StepGoesOnFromWhatIsThereNow) {
    const std::size_t live = test::LiveBlocks();
    for (int variant = 0; variant != 4 * 2 * 2 * 2; ++variant) {
        const int depth = variant / 8;
        const bool visitFirst = (variant & 4) != 0;
        const bool create = (variant & 2) != 0;
        const bool lower = (variant & 1) != 0;
        Message root = Tree("tree");
        Message other = Tree("other");
        MessageCursor cursor(root);
        for (int i = 0; i != depth; ++i) ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
        const bool lowerVisited = visitFirst && cursor.GoToLowerLevelMessage(false) && cursor.GoToParent();
        const bool sameVisited = visitFirst && cursor.GoToSameLevelMessage(false) && cursor.GoToParent();
        Message& current = cursor.GetCurrentMessage();
        GetParam().run(current, other);
        EXPECT_EQ(&cursor.GetCurrentMessage(), &current);
        const Message content(current);
        const test::ModelMessage otherBefore = Compact(other);

        const bool keeps = GetParam().isAddition;
        const Message* nextLower = keeps && lowerVisited ? nullptr : content.GetLowerLevelMessageOrNULL();
        const Message* nextSame = keeps && sameVisited ? nullptr : content.GetSameLevelMessageOrNULL();
        EXPECT_EQ(cursor.LowerLevelMessageIsUnvisited(), nextLower != nullptr);
        EXPECT_EQ(cursor.SameLevelMessageIsUnvisited(), nextSame != nullptr);
        const Message* next = lower ? nextLower : nextSame;
        const bool stepped =
            lower ? cursor.GoToLowerLevelMessage(create) : cursor.GoToSameLevelMessage(create);
        EXPECT_EQ(stepped, create || next != nullptr);
        if (stepped) {
            EXPECT_EQ(Compact(cursor.GetCurrentMessage()),
                      next == nullptr ? Compact(Message()) : Compact(*next));
            cursor.GetCurrentMessage() << "written";
            ASSERT_TRUE(cursor.GoToParent());
            EXPECT_FALSE(lower ? cursor.LowerLevelMessageIsUnvisited()
                               : cursor.SameLevelMessageIsUnvisited());
            const Message* written =
                lower ? current.GetLowerLevelMessageOrNULL() : current.GetSameLevelMessageOrNULL();
            // Next to the visited one there is a second one now.
            if (!keeps || !(lower ? lowerVisited : sameVisited)) {
                EXPECT_EQ(TemplateOf(written), next == nullptr ? "" : TemplateOf(next));
            }
        }
        EXPECT_EQ(test::FindFlaw(&current), nullptr);
        while (cursor.GoToParent()) {
        }
        EXPECT_EQ(test::FindFlaw(&root), nullptr);
        EXPECT_EQ(Compact(other), otherBefore);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

// The levels above are rewritten through the root while the cursor is below.
TEST_P(MessageCursorRewritingOfALevel, WhatIsPackedGoesIntoWhateverTheRootIsByThen) {
    const std::size_t live = test::LiveBlocks();
    for (int depth = 1; depth != 4; ++depth) {
        Message root = Tree("tree");
        Message other = Tree("other");
        MessageCursor cursor(root);
        for (int i = 0; i != depth; ++i) ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
        GetParam().run(root, other);
        const bool hasLower = root.GetLowerLevelMessageOrNULL() != nullptr;
        for (int i = 0; i != depth; ++i) ASSERT_TRUE(cursor.GoToParent());
        EXPECT_FALSE(cursor.GoToParent());
        EXPECT_EQ(test::FindFlaw(&root), nullptr);
        EXPECT_EQ(test::FindFlaw(&other), nullptr);
        EXPECT_EQ(cursor.LowerLevelMessageIsUnvisited(), hasLower);
        // Of the lower-level messages the one packed in again is the last.
        MessageCursor reader(root);
        if (root.GetSameLevelMessageOrNULL() == nullptr) {
            ASSERT_TRUE(reader.GoToLowerLevelMessage(false));
            EXPECT_EQ(TemplateOf(&reader.GetCurrentMessage()), "tree 1");
        }
        while (reader.GoToParent()) {
        }
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(MessageCursorRewritingOfALevel, ReadingCursorAtTheRootGoesOnFromWhatIsThereNow) {
    for (const bool visitFirst : {false, true}) {
        Message root = Tree("tree");
        Message other = Tree("other");
        const test::ModelMessage before = test::ModelMessage::Read(&root);
        ConstMessageCursor cursor(root);
        if (visitFirst) {
            ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
            ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
            GetParam().run(root, other);  // below it only steps back are allowed
            ASSERT_TRUE(cursor.GoToParent());
            ASSERT_TRUE(cursor.GoToParent());
            EXPECT_FALSE(cursor.GoToParent());
        } else {
            GetParam().run(root, other);
        }
        const Message* lower = root.GetLowerLevelMessageOrNULL();
        const Message* same = root.GetSameLevelMessageOrNULL();
        // Records that equal the earlier ones, or begin with them, are not detected.
        const test::ModelMessage now = test::ModelMessage::Read(&root);
        const bool beginsEqual = now.blocks.size() >= before.blocks.size() &&
                                 std::equal(before.blocks.begin(), before.blocks.end(), now.blocks.begin());
        const bool keeps = GetParam().isAddition || beginsEqual;
        EXPECT_EQ(cursor.LowerLevelMessageIsUnvisited(), lower != nullptr && !(visitFirst && keeps));
        EXPECT_EQ(cursor.SameLevelMessageIsUnvisited(), same != nullptr);
        EXPECT_EQ(cursor.GoToLowerLevelMessage(false), lower != nullptr);
        if (lower != nullptr) {
            EXPECT_EQ(&cursor.GetCurrentMessage(), lower);
            ASSERT_TRUE(cursor.GoToParent());
            EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
        }
        EXPECT_EQ(cursor.GoToSameLevelMessage(false), same != nullptr);
        if (same != nullptr) {
            EXPECT_EQ(&cursor.GetCurrentMessage(), same);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(MessageCursor, MessageCursorRewritingOfALevel, testing::ValuesIn(kRewritings),
                         [](const auto& tested) { return std::string(tested.param.name); });

TEST(MessageCursorRewriting, AdditionsAreNoRewriting) {
    Message root = Tree("tree");
    MessageCursor cursor(root);
    for (int level = 0; level != 2; ++level) {
        ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
        ASSERT_TRUE(cursor.GoToSameLevelMessage(false));
        ASSERT_TRUE(cursor.GoToParent());
        Message& current = cursor.GetCurrentMessage();
        const unsigned short wide[] = {'w', 0};
        for (int i = 0; i != 50; ++i) current << "added" << i;
        current.SetTemplate("a template that is longer than the one that was there");
        current.SetLocalizedText(7, "text");
        current.SetMessage(wide);
        current.SetDomainAndID(7, 8);
        EXPECT_TRUE(cursor.LowerLevelMessageIsUnvisited());
        EXPECT_FALSE(cursor.SameLevelMessageIsUnvisited());
        EXPECT_FALSE(cursor.GoToSameLevelMessage(false));
    }
    while (cursor.GoToParent()) {
    }
    EXPECT_EQ(test::FindFlaw(&root), nullptr);
}

namespace {

void WalkSameLevelByAnotherCursor(Message& message) {
    MessageCursor walker(message);
    ASSERT_TRUE(walker.GoToSameLevelMessage(true));
    ASSERT_TRUE(walker.GoToParent());
}

void WalkLowerLevelByAnotherCursor(Message& message) {
    MessageCursor walker(message);
    ASSERT_TRUE(walker.GoToLowerLevelMessage(false));
    ASSERT_TRUE(walker.GoToParent());
}

template <class Cursor>
void ExpectVisitedBranchStaysVisited() {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    Cursor cursor(message);
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    ASSERT_TRUE(cursor.GoToParent());
    WalkSameLevelByAnotherCursor(message);
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
    WalkLowerLevelByAnotherCursor(message);
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
}

// The rounds of the usual loop over unvisited branches when each round formats the current message.
template <class Cursor>
int CountTurnsWithFormatting(Message& message, Message& formatted) {
    Cursor cursor(message);
    ZBase::SimpleMessageLocalizer localizer;
    int turns = 0;
    while (turns != 5 && cursor.LowerLevelMessageIsUnvisited()) {
        ++turns;
        EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
        EXPECT_TRUE(cursor.GoToParent());
        EXPECT_STREQ(FormatMessage(formatted, 0x409, localizer).c_str(),
                     "b (Unknown message 3)\ta (Unknown message 2)");
    }
    return turns;
}

int CountLowerLevelMessages(const Message& message) {
    int count = 0;
    const test::ModelMessage model = test::ModelMessage::Read(&message);
    for (const test::ModelBlock& block : model.blocks)
        for (const test::ModelRecord& record : block.records) count += record.tag == 5;
    return count;
}

}  // namespace

TEST(MessageCursorRewriting, WalkOfAnotherLeavesAVisitedBranchVisited) {
    ExpectVisitedBranchStaysVisited<MessageCursor>();
}

TEST(MessageCursorRewritingForReaders, WalkOfAnotherLeavesAVisitedBranchVisited) {
    ExpectVisitedBranchStaysVisited<ConstMessageCursor>();
}

TEST(MessageCursorRewriting, LoopThatFormatsTheCurrentMessageEndsAfterOneTurn) {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    EXPECT_EQ(CountTurnsWithFormatting<MessageCursor>(message, message), 1);
    EXPECT_EQ(CountLowerLevelMessages(message), 1);
}

TEST(MessageCursorRewritingForReaders, LoopThatFormatsTheMessageEndsAfterOneTurn) {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    EXPECT_EQ(CountTurnsWithFormatting<ConstMessageCursor>(message, message), 1);
    EXPECT_EQ(CountLowerLevelMessages(message), 1);
}

TEST(MessageCursorRewriting, CreatingStepOnAVisitedBranchBeginsAnewAfterTheWalkOfAnother) {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    MessageCursor cursor(message);
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    ASSERT_TRUE(cursor.GoToParent());
    WalkLowerLevelByAnotherCursor(message);
    EXPECT_FALSE(cursor.GoToLowerLevelMessage(false));
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(true));
    EXPECT_TRUE(cursor.GetCurrentMessage().IsEmpty());
    ASSERT_TRUE(cursor.GoToParent());
    EXPECT_EQ(CountLowerLevelMessages(message), 2);
}

// The branch that another cursor has packed in anew is the one the step goes to, and the only one.
TEST(MessageCursorRewriting, WalkOfAnotherLeavesAnUnvisitedBranchToStepTo) {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    MessageCursor cursor(message);
    WalkLowerLevelByAnotherCursor(message);
    WalkSameLevelByAnotherCursor(message);
    ASSERT_TRUE(cursor.LowerLevelMessageIsUnvisited());
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&cursor.GetCurrentMessage()), "a");
    ASSERT_TRUE(cursor.GoToParent());
    EXPECT_EQ(CountLowerLevelMessages(message), 1);
}

// Seen from its records alone, such a leaf was only added to.
TEST(MessageCursorRewriting, LeafThatWasWrappedInItsLikeIsSteppedInto) {
    Message message(1, 2, "a");
    MessageCursor cursor(message);
    ConstMessageCursor reader(message);
    message.WrapBy(1, 2, "a");
    EXPECT_TRUE(reader.LowerLevelMessageIsUnvisited());
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&cursor.GetCurrentMessage()), "a");
    ASSERT_TRUE(cursor.GoToParent());
}

// The record of the branch below, dead while the cursor is there, tells it too.
TEST(MessageCursorRewriting, RootThatIsClearedWhileTheCursorIsBelowHasNothingVisited) {
    Message message(1, 2, "a");
    message.WrapBy(1, 3, "b");
    MessageCursor cursor(message);
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    message.Clear();
    message.SetTemplate("a cause");
    message.WrapBy(1, 3, "another");
    ASSERT_TRUE(cursor.GoToParent());
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&cursor.GetCurrentMessage()), "a cause");
    ASSERT_TRUE(cursor.GoToParent());
}

TEST(MessageCursorRewriting, TwoOnOneMessageNeverHaveTheSameBranch) {
    Message root = Tree("tree");
    MessageCursor one(root);
    MessageCursor other(root);
    ASSERT_TRUE(one.GoToLowerLevelMessage(false));
    EXPECT_FALSE(other.LowerLevelMessageIsUnvisited());
    EXPECT_FALSE(other.GoToLowerLevelMessage(false));
    one.GetCurrentMessage() << "by one";
    ASSERT_TRUE(one.GoToParent());
    EXPECT_TRUE(other.LowerLevelMessageIsUnvisited());
    ASSERT_TRUE(other.GoToLowerLevelMessage(false));
    EXPECT_STREQ(other.GetCurrentMessage().GetParameter(0), "by one");
    EXPECT_FALSE(one.LowerLevelMessageIsUnvisited());
    ASSERT_TRUE(other.GoToParent());
    EXPECT_STREQ(root.GetLowerLevelMessageOrNULL()->GetParameter(0), "by one");
    const Message copy(root);
    EXPECT_EQ(test::Layout(&copy).find("#5", test::Layout(&copy).find("#5") + 1), std::string::npos);
}

// The cursors begin with an empty root, so no record that is missing tells them that it was rewritten. Of two
// causes a step goes to the later one.
TEST(MessageCursorRewriting, LinkAtThePlaceOfALongerOneIsAnotherLink) {
    const auto setCauses = [](Message& message, std::initializer_list<const char*> texts) {
        message.Clear();
        MessageCursor cursor(message);
        for (const char* text : texts) {
            cursor.GoToLowerLevelMessage(true);
            cursor.GetCurrentMessage().SetTemplate(text);
            cursor.GoToParent();
        }
    };
    Message root;
    MessageCursor cursor(root);
    ConstMessageCursor reader(root);
    setCauses(root, {"a longer cause"});
    EXPECT_TRUE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_TRUE(reader.LowerLevelMessageIsUnvisited());
    setCauses(root, {"cause", "later"});
    ASSERT_TRUE(reader.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&reader.GetCurrentMessage()), "later");
    ASSERT_TRUE(reader.GoToParent());
    ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&cursor.GetCurrentMessage()), "later");
    ASSERT_TRUE(cursor.GoToParent());
}

TEST(MessageCursorRewriting, CopyAtARootThatWasRewrittenGoesOnFromItToo) {
    Message root = Tree("tree");
    MessageCursor cursor(root);
    MessageCursor copy(cursor);
    root = Tree("another tree");
    ASSERT_TRUE(copy.GoToLowerLevelMessage(false));
    EXPECT_EQ(TemplateOf(&copy.GetCurrentMessage()), "another tree 1");
    ASSERT_TRUE(copy.GoToParent());
    MessageCursor assigned(root);
    root.Clear();
    assigned = copy;
    EXPECT_FALSE(assigned.GoToLowerLevelMessage(false));
    EXPECT_FALSE(assigned.GoToSameLevelMessage(false));
}

TEST(MessageCursorRewriting, LevelThatIsWrappedBeforeEachStepKeepsItsContent) {
    Message root(1, 0, "innermost");
    MessageCursor cursor(root);
    for (int i = 1; i != 20; ++i) {
        cursor.GetCurrentMessage().WrapBy(1, i, "wrapper");
        ASSERT_TRUE(cursor.GoToLowerLevelMessage(false));
        EXPECT_EQ(TemplateOf(&cursor.GetCurrentMessage()), "innermost");
    }
    while (cursor.GoToParent()) {
    }
    const Message* at = &root;
    for (int i = 1; i != 20; ++i, at = at->GetLowerLevelMessageOrNULL()) ASSERT_EQ(at->GetID(), i);
    EXPECT_EQ(TemplateOf(at), "innermost");
}

TEST(MessageCursorRewritingForReaders, TakesNoTemporary) {
    EXPECT_TRUE((std::is_constructible_v<ConstMessageCursor, Message&>));
    EXPECT_TRUE((std::is_constructible_v<ConstMessageCursor, const Message&>));
    EXPECT_FALSE((std::is_constructible_v<ConstMessageCursor, Message>));
    EXPECT_FALSE((std::is_constructible_v<ConstMessageCursor, const Message>));
    EXPECT_FALSE((std::is_convertible_v<Message, ConstMessageCursor>));
    EXPECT_FALSE((std::is_constructible_v<MessageCursor, Message>));
    EXPECT_FALSE((std::is_constructible_v<MessageCursor, const Message&>));
}
