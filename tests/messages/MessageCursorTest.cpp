#include "tests/messages/CursorTree.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/MessageCursor.h>

#include <gtest/gtest.h>

#include <string>

using test::Layout;
using test::Text;
using test::Tree;
using ZBase::ConstMessageCursor;
using ZBase::Message;
using ZBase::MessageCursor;

namespace {

template <class Cursor>
class MessageCursorOfAnyKind : public testing::Test {};

using Cursors = testing::Types<ConstMessageCursor, MessageCursor>;
TYPED_TEST_SUITE(MessageCursorOfAnyKind, Cursors);

}  // namespace

TYPED_TEST(MessageCursorOfAnyKind, StandsOnTheRoot) {
    Message message = Tree();
    TypeParam cursor(message);
    EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "0,0");
    EXPECT_TRUE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_FALSE(cursor.SameLevelMessageIsUnvisited());
}

TYPED_TEST(MessageCursorOfAnyKind, GoToParentAtTheRootStaysAndTheCursorGoesOn) {
    Message message = Tree();
    TypeParam cursor(message);
    EXPECT_FALSE(cursor.GoToParent());
    EXPECT_FALSE(cursor.GoToParent());
    EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.GoToParent());
}

TYPED_TEST(MessageCursorOfAnyKind, OffsetsCountTheStepsOfEachKind) {
    Message message(1, 4, "d");
    message.WrapBy(1, 3, "c").PrependBy(1, 2, "b").WrapBy(1, 1, "a");
    TypeParam cursor(message);
    const char* const expected[] = {"1,0", "1,1", "2,1"};
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), expected[0]);
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), expected[1]);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), expected[2]);
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "d");
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), expected[1]);
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "c");
    while (cursor.GoToParent()) {
    }
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "0,0");
}

TYPED_TEST(MessageCursorOfAnyKind, MissingMessageIsReachedWithCreateAlone) {
    Message message(1, 1, "alone");
    TypeParam cursor(message);
    EXPECT_FALSE(cursor.GoToLowerLevelMessage(false));
    EXPECT_FALSE(cursor.GoToSameLevelMessage(false));
    EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(true));
    EXPECT_TRUE(cursor.GetCurrentMessage().IsEmpty());
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "1,0");
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_FALSE(cursor.SameLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.GoToSameLevelMessage(true));
    EXPECT_TRUE(cursor.GetCurrentMessage().IsEmpty());
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "1,1");
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_EQ(&cursor.GetCurrentMessage(), &message);
}

TYPED_TEST(MessageCursorOfAnyKind, StepTakenMakesTheBranchVisited) {
    Message message = Tree();
    TypeParam cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.SameLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.SameLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "next");
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.SameLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
}

TYPED_TEST(MessageCursorOfAnyKind, DepthOfThousandsIsWalked) {
    Message message(1, 0, nullptr);
    for (int i = 1; i != 1500; ++i) message.WrapBy(1, i, nullptr);
    TypeParam cursor(message);
    unsigned short depth = 0;
    while (cursor.GoToLowerLevelMessage(false)) ++depth;
    EXPECT_EQ(depth, 1499);
    EXPECT_EQ(cursor.GetCurrentOffset().lower_level_offset, 1499);
    EXPECT_EQ(cursor.GetCurrentMessage().GetID(), 0);
    while (cursor.GoToParent()) --depth;
    EXPECT_EQ(depth, 0);
    EXPECT_EQ(message.GetID(), 1499);
    int levels = 1;
    for (const Message* at = &message; (at = at->GetLowerLevelMessageOrNULL()) != nullptr;) ++levels;
    EXPECT_EQ(levels, 1500);
}

TEST(MessageCursor, BranchThatWasVisitedIsGoneUnlessCreated) {
    Message message = Tree();
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.GoToLowerLevelMessage(false));
}

TEST(MessageCursor, VisitLeavesADeadRecordAndANewOne) {
    Message message(1, 2, "in");
    message.WrapBy(1, 1, "out");
    EXPECT_EQ(Layout(&message), "100-20: 13#1 9#2 42#5");
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(Layout(&message), "100-20: 13#1 9#2 42#0");
    EXPECT_EQ(Layout(&cursor.GetCurrentMessage()), "16-0: | 100-63: 13#1 8#2");
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_EQ(Layout(&message), "100-20: 13#1 9#2 42#0 | 100-42: 42#5");
    EXPECT_STREQ(message.GetLowerLevelMessageOrNULL()->GetTemplate(), "in");
    const Message copy(message);
    EXPECT_EQ(Layout(&copy), "100-20: 13#1 9#2 42#5");
}

TEST(MessageCursor, WritesLandInThePackedMessage) {
    Message message = Tree();
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    cursor.GetCurrentMessage() << "first"
                               << "second";
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    cursor.GetCurrentMessage().SetTemplate("a much longer inner template than there was");
    cursor.GetCurrentMessage().SetDomainAndID(7, 8);
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    cursor.GetCurrentMessage() << "third";
    while (cursor.GoToParent()) {
    }
    const Message* middle = message.GetLowerLevelMessageOrNULL();
    EXPECT_STREQ(middle->GetParameter(1), "second");
    EXPECT_EQ(middle->GetLowerLevelMessageOrNULL()->GetDomain(), 7);
    EXPECT_STREQ(middle->GetLowerLevelMessageOrNULL()->GetTemplate(),
                 "a much longer inner template than there was");
    EXPECT_STREQ(middle->GetSameLevelMessageOrNULL()->GetParameter(0), "third");
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

TEST(MessageCursor, EmptyMessageThatWasBegunIsPackedAsTwentyOneBytes) {
    Message message(1, 1, nullptr);
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(true));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_EQ(Layout(&message), "100-50: 13#1 21#5");
    ASSERT_NE(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_TRUE(message.GetLowerLevelMessageOrNULL()->IsEmpty());
}

TEST(MessageCursor, CreateAfterAVisitLeavesTwoRecordsOfTheTag) {
    Message message(1, 2, "in");
    message.WrapBy(1, 1, nullptr);
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(true));
    EXPECT_TRUE(cursor.GetCurrentMessage().IsEmpty());
    cursor.GetCurrentMessage().SetDomainAndID(5, 6);
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_EQ(Layout(&message), "100-29: 13#1 42#0 | 100-8: 42#5 34#5");
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL()->GetID(), 2);
    // Of two records of one tag a cursor takes the later.
    ConstMessageCursor reader(message);
    EXPECT_TRUE(reader.GoToLowerLevelMessage(false));
    EXPECT_EQ(reader.GetCurrentMessage().GetID(), 6);
}

TEST(MessageCursor, LaterRecordCountsOnlyUntilBothLinksAreFound) {
    // Lower 1, same 2, lower 3: each begun by a cursor that was at the root with the branch visited.
    Message message;
    MessageCursor cursor(message);
    for (const int id : {1, 2, 3}) {
        EXPECT_TRUE(id == 2 ? cursor.GoToSameLevelMessage(true) : cursor.GoToLowerLevelMessage(true));
        cursor.GetCurrentMessage().SetDomainAndID(1, id);
        EXPECT_TRUE(cursor.GoToParent());
    }
    EXPECT_EQ(Layout(&message), "100-16: 34#5 34#4 | 100-50: 34#5");
    ConstMessageCursor reader(message);
    EXPECT_TRUE(reader.GoToLowerLevelMessage(false));
    EXPECT_EQ(reader.GetCurrentMessage().GetID(), 1);
    // On the way down a writing cursor copies all records, so there the last one counts.
    message.WrapBy(1, 4, nullptr);
    MessageCursor writer(message);
    EXPECT_TRUE(writer.GoToLowerLevelMessage(false));
    EXPECT_TRUE(writer.GoToLowerLevelMessage(false));
    EXPECT_EQ(writer.GetCurrentMessage().GetID(), 3);
}

TEST(MessageCursor, CopyOfTheRootBelowItLacksTheBranchThatIsOut) {
    Message message = Tree();
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    const Message copy(message);
    EXPECT_EQ(copy.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_NE(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_EQ(copy.GetLowerLevelMessageOrNULL(), nullptr);
}

TEST(MessageCursor, DestroyedTwoLevelsDownTheRootIsWithoutThem) {
    Message message = Tree();
    {
        MessageCursor cursor(message);
        EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
        EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    }
    EXPECT_EQ(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_STREQ(message.GetTemplate(), "outer");
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
}

TEST(MessageCursor, CopyAtTheRootWalksTheSameMessage) {
    Message message = Tree();
    MessageCursor cursor(message);
    MessageCursor copy(cursor);
    EXPECT_EQ(&copy.GetCurrentMessage(), &message);
    EXPECT_TRUE(copy.GoToLowerLevelMessage(false));
    copy.GetCurrentMessage() << "x";
    EXPECT_TRUE(copy.GoToParent());
    EXPECT_STREQ(message.GetLowerLevelMessageOrNULL()->GetParameter(0), "x");
    Message other(9, 9, "other");
    MessageCursor assigned(other);
    assigned = copy;
    EXPECT_EQ(&assigned.GetCurrentMessage(), &message);
    EXPECT_FALSE(assigned.LowerLevelMessageIsUnvisited());
}

TEST(MessageCursor, CopyOfOneBelowItsRootBeginsAtTheRoot) {
    Message message = Tree();
    MessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    MessageCursor copy(cursor);
    EXPECT_EQ(&copy.GetCurrentMessage(), &message);
    EXPECT_FALSE(copy.GoToLowerLevelMessage(false));
    MessageCursor& same = cursor;
    cursor = same;
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "middle");
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_STREQ(message.GetLowerLevelMessageOrNULL()->GetTemplate(), "middle");
}

TEST(MessageCursor, RootOfSixteenBytesIsWalked) {
    unsigned char memory[17];
    const Message::PlacementPtr root(memory + 1, 16, Tree());
    MessageCursor cursor(*root);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    cursor.GetCurrentMessage() << "x";
    while (cursor.GoToParent()) {
    }
    const Message* next = root->GetLowerLevelMessageOrNULL()->GetSameLevelMessageOrNULL();
    EXPECT_STREQ(next->GetParameter(0), "x");
    EXPECT_EQ(test::FindFlaw(root.Get()), nullptr);
}
