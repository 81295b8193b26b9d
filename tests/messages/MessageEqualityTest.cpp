#include "tests/support/MessageTrees.h"

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/SimpleMessageLocalizer.h>

#include <gtest/gtest.h>

#include <string>

using ZBase::Message;
using namespace ZBase::Literals;

namespace {

Message Filled() {
    Message message(300, 42, "Cannot open %1");
    message << "x" << 5;
    message.SetLocalizedText(0x407, "Geht nicht auf");
    message.SetLocalizedText(0x409, "Does not open");
    message.WrapBy(300, 43, "outer");
    message.PrependBy(300, 44, "before");
    return message;
}

}  // namespace

TEST(MessageEquality, OfCopiesAndOfAnyTree) {
    EXPECT_EQ(Message(), Message());
    EXPECT_EQ(Filled(), Filled());
    for (unsigned int seed = 0; seed != 20; ++seed) {
        Message one;
        Message other;
        test::FillAtRandom(one, seed);
        test::FillAtRandom(other, seed + 1);
        const Message copy(one);
        EXPECT_EQ(one, copy);
        EXPECT_EQ(one == other, test::DescribeTree(one) == test::DescribeTree(other));
    }
}

TEST(MessageEquality, SeesEachDifference) {
    const auto differs = [](auto change) {
        Message changed = Filled();
        change(changed);
        return changed != Filled() && Filled() != changed;
    };
    EXPECT_TRUE(differs([](Message& message) { message.SetDomainAndID(300, 45); }));
    EXPECT_TRUE(differs([](Message& message) { message.SetDomainAndID(301, 44); }));
    EXPECT_TRUE(differs([](Message& message) { message.SetTemplate("behind"); }));
    EXPECT_TRUE(differs([](Message& message) { message.SetTemplate(nullptr); }));
    EXPECT_TRUE(differs([](Message& message) { message << ""; }));
    EXPECT_TRUE(differs([](Message& message) { message.SetLocalizedText(0x409, ""); }));
    EXPECT_TRUE(differs([](Message& message) { message.WrapBy(300, 1, nullptr); }));
    EXPECT_TRUE(differs([](Message& message) { message.PrependBy(300, 1, nullptr); }));
    EXPECT_TRUE(differs([](Message& message) { message.Clear(); }));
    EXPECT_TRUE(differs([](Message& message) {
        ZBase::MessageCursor cursor(message);
        cursor.GoToSameLevelMessage(false);
        cursor.GoToLowerLevelMessage(false);
        cursor.GetCurrentMessage() << "one more at the deepest";
        while (cursor.GoToParent()) {
        }
    }));
}

TEST(MessageEquality, ACauseIsNotWhatFollows) {
    Message cause(300, 1, nullptr);
    Message list(300, 1, nullptr);
    cause.WrapBy(300, 2, nullptr);
    list.PrependBy(300, 2, nullptr);
    EXPECT_NE(cause, list);
}

TEST(MessageEquality, DoesNotMindDeadRecordsOrderWideTextAndNumberFormat) {
    Message message = Filled();
    ZBase::SimpleMessageLocalizer localizer;
    ZBase::FormatMessage(message, 0, localizer);
    message.SetTemplate("a longer template, which leaves a dead one behind");
    message.SetTemplate("before");
    message << ZBase::Message::Hex;
    EXPECT_NE(message.GetMessage(), nullptr);
    EXPECT_EQ(message, Filled());
}

TEST(MessageEquality, OfExceptionsIsThatOfTheirMessages) {
    EXPECT_EQ(ZBase::BufferException(0, -1, "text"), Message(0, -1, "text"));
}
