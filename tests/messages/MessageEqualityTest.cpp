#include "tests/support/MessageTrees.h"

#include <Base/frame/Exceptions.h>
#include <Base/frame/WideLiteral.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/MessageXml.h>
#include <Base/messages/SimpleMessageLocalizer.h>
#include <ZLiteXML/UTF8Reader.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <initializer_list>
#include <iterator>
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

TEST(MessageEquality, NoDomainAndIDAreNotZeroes) {
    EXPECT_NE(Message(), Message(0, 0, nullptr));
    EXPECT_NE(Message(0, 0, nullptr), Message());
    Message only;
    only.SetTemplate("text");
    EXPECT_NE(only, Message(0, 0, "text"));
    only.SetDomainAndID(0, 0);
    EXPECT_EQ(only, Message(0, 0, "text"));
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

TEST(MessageEquality, DoesNotMindTheOrderOfLanguages) {
    Message one(300, 1, nullptr);
    Message other(300, 1, nullptr);
    for (unsigned short language = 1; language != 50; ++language) {
        one.SetLocalizedText(language, std::to_string(language).c_str());
        other.SetLocalizedText(static_cast<unsigned short>(50 - language),
                               std::to_string(50 - language).c_str());
    }
    EXPECT_EQ(one, other);
    other.SetLocalizedText(17, "another");
    EXPECT_NE(one, other);
    EXPECT_NE(other, one);
    other.SetLocalizedText(17, nullptr);
    EXPECT_NE(one, other);
    EXPECT_NE(other, one);
}

// The first text of a language is the one that counts; a second one can only come with foreign bytes.
TEST(MessageEquality, OfSeveralTextsOfALanguageTheFirstCounts) {
    const auto withTexts = [](std::initializer_list<const char*> texts) {
        Message message(300, 1, nullptr);
        unsigned short language = 9;
        for (const char* text : texts) message.SetLocalizedText(language++, text);
        // Tag, language and text of the second, which becomes one of the same language.
        auto* const bytes = reinterpret_cast<unsigned char*>(&message);
        constexpr unsigned char kSecond[] = {6, 10, 0};
        auto* const second =
            std::search(bytes, bytes + sizeof message, std::begin(kSecond), std::end(kSecond));
        if (second != bytes + sizeof message) second[1] = 9;
        return message;
    };
    EXPECT_EQ(withTexts({"a", "b"}), withTexts({"a", "c"}));
    EXPECT_EQ(withTexts({"a", "b"}), withTexts({"a"}));
    EXPECT_NE(withTexts({"a", "b"}), withTexts({"b", "a"}));
}

// A look-up for each would compare some 4,000,000,000 records, which takes far more than the bound.
TEST(MessageEquality, OfAllLanguagesComparesEachOnce) {
    std::string document = "<message>";
    char element[64];
    for (unsigned int language = 1; language != 0x10000; ++language) {
        std::snprintf(element, sizeof element, "<text language_id='%X'>t</text>", language);
        document += element;
    }
    document += "</message>";
    Message one;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(one, *reader).Get());
    reader->Read(document.data(), document.size());
    reader->Finish();
    const Message other(one);
    const std::clock_t start = std::clock();
    EXPECT_EQ(one, other);
    EXPECT_LT(std::clock() - start, 3 * CLOCKS_PER_SEC);  // of this process
}

TEST(MessageEquality, OfExceptionsIsThatOfTheirMessages) {
    EXPECT_EQ(ZBase::BufferException(0, -1, "text"), Message(0, -1, "text"));
}
