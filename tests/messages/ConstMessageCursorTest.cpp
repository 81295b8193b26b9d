#include "tests/messages/CursorTree.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageModel.h"

#include <Base/messages/ConstMessageCursor.h>

#include <gtest/gtest.h>

#include <string>

using test::Layout;
using test::Text;
using test::Tree;
using ZBase::ConstMessageCursor;
using ZBase::Message;

namespace {

TEST(ConstMessageCursor, StepMayBeTakenAgain) {
    const Message message = Tree();
    ConstMessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToParent());
    EXPECT_FALSE(cursor.LowerLevelMessageIsUnvisited());
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_EQ(&cursor.GetCurrentMessage(), message.GetLowerLevelMessageOrNULL());
}

TEST(ConstMessageCursor, MessageIsReadWhereItLiesAndStaysAsItIs) {
    const Message message = Tree();
    const std::string before = test::Hex(&message, 100);
    ConstMessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    EXPECT_EQ(&cursor.GetCurrentMessage(), message.GetLowerLevelMessageOrNULL()->GetSameLevelMessageOrNULL());
    EXPECT_TRUE(cursor.GoToSameLevelMessage(true));
    EXPECT_EQ(Layout(&cursor.GetCurrentMessage()), "16-0:");
    EXPECT_EQ(test::Hex(&message, 100), before);
}

TEST(ConstMessageCursor, AddingToTheMessageIsSafe) {
    Message message = Tree();
    ConstMessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    for (int i = 0; i != 100; ++i) message << "added";
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "middle");
    EXPECT_TRUE(cursor.GoToSameLevelMessage(false));
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "next");
}

TEST(ConstMessageCursor, CopiesGoTheirOwnWays) {
    const Message message = Tree();
    ConstMessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(false));
    ConstMessageCursor copy(cursor);
    EXPECT_TRUE(copy.GoToSameLevelMessage(false));
    EXPECT_STREQ(copy.GetCurrentMessage().GetTemplate(), "next");
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "middle");
    EXPECT_TRUE(cursor.SameLevelMessageIsUnvisited());
    cursor = copy;
    EXPECT_STREQ(cursor.GetCurrentMessage().GetTemplate(), "next");
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "1,1");
    ConstMessageCursor& same = cursor;
    cursor = same;
    EXPECT_EQ(Text(cursor.GetCurrentOffset()), "1,1");
}

TEST(ConstMessageCursor, CopyMadeOnAMissingMessageStillStandsOnThatOfItsSource) {
    const Message message(1, 1, "alone");
    ConstMessageCursor cursor(message);
    EXPECT_TRUE(cursor.GoToLowerLevelMessage(true));
    ConstMessageCursor copy(cursor);
    EXPECT_EQ(&copy.GetCurrentMessage(), &cursor.GetCurrentMessage());
    EXPECT_TRUE(copy.GoToLowerLevelMessage(true));
    EXPECT_NE(&copy.GetCurrentMessage(), &cursor.GetCurrentMessage());
    EXPECT_TRUE(copy.GetCurrentMessage().IsEmpty());
}

}  // namespace
