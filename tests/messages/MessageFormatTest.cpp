#include <Base/messages/ConstMessageCursor.h>
#include <Base/messages/Message.h>
#include <Base/messages/MessageCursor.h>
#include <Base/messages/MessageFormat.h>
#include <Base/messages/SimpleMessageLocalizer.h>

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>

#include "tests/messages/RecordingLocalizer.h"
#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"

namespace {

using namespace ZBase;
using test::FormatSimply;
using test::RecordingLocalizer;

constexpr unsigned short kLanguage = 7;

// Returns the template of a message; a null text if there is none.
class TemplateLocalizer : public Message::Localizer {
public:
    ReturnString LocalizeText(unsigned short, unsigned short, int, const char* textTemplate,
                              const char* const*) override {
        return ReturnString(textTemplate);
    }
};

// The same, except that it throws at one message.
class ThrowingLocalizer : public TemplateLocalizer {
public:
    explicit ThrowingLocalizer(int textsBefore) : mLeft(textsBefore) {}
    ReturnString LocalizeText(unsigned short language, unsigned short domain, int id,
                              const char* textTemplate, const char* const* parameters) override {
        if (mLeft-- == 0) throw std::runtime_error("no more texts");
        return TemplateLocalizer::LocalizeText(language, domain, id, textTemplate, parameters);
    }

private:
    int mLeft;
};

std::string Format(Message& message, Message::Localizer& localizer) {
    return FormatMessage(message, kLanguage, localizer).c_str();
}

std::string Format(const Message& message, Message& localized, Message::Localizer& localizer) {
    return FormatMessage(message, localized, kLanguage, localizer).c_str();
}

Message Wrapped(std::initializer_list<const char*> fromInside) {
    Message message;
    for (const char* text : fromInside) message.WrapBy(300, 1, text);
    return message;
}

struct Node {
    std::string text;
    std::unique_ptr<Node> lower;
    std::unique_ptr<Node> same;
};

std::unique_ptr<Node> MakeTree(std::mt19937& random, int& left) {
    auto node = std::make_unique<Node>();
    node->text = "<" + std::to_string(left) + std::string(random() % 30, '.') + ">";
    if (--left > 0 && random() % 3 != 0) node->lower = MakeTree(random, left);
    if (left > 0 && random() % 3 != 0) node->same = MakeTree(random, left);
    return node;
}

void Fill(MessageCursor& cursor, const Node& node) {
    cursor.GetCurrentMessage().SetTemplate(node.text.c_str());
    if (node.lower != nullptr) {
        ASSERT_TRUE(cursor.GoToLowerLevelMessage(true));
        Fill(cursor, *node.lower);
        ASSERT_TRUE(cursor.GoToParent());
    }
    if (node.same != nullptr) {
        ASSERT_TRUE(cursor.GoToSameLevelMessage(true));
        Fill(cursor, *node.same);
        ASSERT_TRUE(cursor.GoToParent());
    }
}

std::string Expected(const Node& node, std::size_t depth = 0) {
    std::string text = std::string(depth, '\t') + node.text;
    if (node.lower != nullptr) text += Expected(*node.lower, depth + 1);
    if (node.same != nullptr) text += Expected(*node.same, depth);
    return text;
}

TEST(MessageFormat, EmptyMessageIsAnUnknownError) {
    EXPECT_EQ(FormatSimply(Message(), 0), "Unknown error. (Unknown message 0)");
    EXPECT_EQ(FormatSimply(Message(), 0x409), "Unknown error. (Unknown message 0)");
}

TEST(MessageFormat, WrappedMessagesAreIndentedByOneMoreTabEach) {
    TemplateLocalizer localizer;
    Message message = Wrapped({"inner", "middle", "outer"});
    EXPECT_EQ(Format(message, localizer), "outer\tmiddle\t\tinner");
    EXPECT_EQ(FormatSimply(message, 0),
              "outer (Server message 1)\tmiddle (Server message 1)\t\tinner (Server message 1)");
}

TEST(MessageFormat, MessagesOfOneLevelHaveItsIndentation) {
    TemplateLocalizer localizer;
    Message message(300, 1, "second");
    message.PrependBy(300, 2, "first");
    EXPECT_EQ(Format(message, localizer), "firstsecond");
    message.WrapBy(300, 3, "outer");
    EXPECT_EQ(Format(message, localizer), "outer\tfirst\tsecond");
    EXPECT_EQ(FormatSimply(message, 0),
              "outer (Server message 3)\tfirst (Server message 2)\tsecond (Server message 1)");
}

TEST(MessageFormat, LowerLevelsComeBeforeTheSameLevel) {
    TemplateLocalizer localizer;
    Message message(300, 1, "cause of last");
    message.WrapBy(300, 1, "last");
    Message first(300, 1, "cause of first");
    first.WrapBy(300, 1, "first");
    message.PrependBy(first);
    EXPECT_EQ(Format(message, localizer), "first\tcause of firstlast\tcause of last");
}

TEST(MessageFormat, NullTextIsUnknownAndAnEmptyOneStays) {
    RecordingLocalizer none(nullptr);
    RecordingLocalizer empty("");
    Message message = Wrapped({"inner", "outer"});
    EXPECT_EQ(Format(message, none), "Unknown.\tUnknown.");
    EXPECT_EQ(Format(message, empty), "\t");
}

TEST(MessageFormat, StoredTextsOfTheLanguageWinAtEveryLevel) {
    Message message(100, 5, nullptr);
    message.SetLocalizedText(1033, "stored");
    message.WrapBy(300, 1, "outer");
    EXPECT_EQ(FormatSimply(message, 1033), "outer (Server message 1)\tstored");
    EXPECT_EQ(FormatSimply(message, 0), "outer (Server message 1)\tAccess is denied. (Windows API error 5)");
}

TEST(MessageFormat, LocalizerIsAskedOncePerMessageInTheOrderOfTheText) {
    RecordingLocalizer localizer("x");
    Message message = Wrapped({"c", "b", "a"});
    Format(message, localizer);
    ASSERT_EQ(localizer.calls.size(), 3u);
    EXPECT_EQ(localizer.calls[0].textTemplate, "a");
    EXPECT_EQ(localizer.calls[1].textTemplate, "b");
    EXPECT_EQ(localizer.calls[2].textTemplate, "c");
    EXPECT_EQ(localizer.calls[2].language, kLanguage);
}

TEST(MessageFormat, AgreesWithARecursiveModelOnRandomTrees) {
    std::mt19937 random(4711);
    TemplateLocalizer localizer;
    for (int round = 0; round != 300; ++round) {
        int left = 1 + static_cast<int>(random() % 25);
        const std::unique_ptr<Node> tree = MakeTree(random, left);
        Message message;
        MessageCursor cursor(message);
        ASSERT_NO_FATAL_FAILURE(Fill(cursor, *tree));
        Message copy = message;
        Message spine;
        EXPECT_EQ(Format(copy, localizer), Expected(*tree));
        EXPECT_EQ(Format(copy, localizer), Expected(*tree));  // nothing was lost on the way
        EXPECT_EQ(FormatSimply(copy, 0), FormatSimply(message, 0));
        for (Node* node = tree.get(); node != nullptr; node = node->lower.get()) node->same.reset();
        EXPECT_EQ(Format(message, spine, localizer), Expected(*tree));
    }
}

TEST(MessageFormat, ThrowingLocalizerLosesNothingOfTheMessage) {
    TemplateLocalizer localizer;
    Message list(300, 1, "c");
    list.PrependBy(300, 1, "b");
    list.WrapBy(300, 1, "a");
    for (int texts = 0; texts != 3; ++texts) {
        Message message = list;
        ThrowingLocalizer throwing(texts);
        EXPECT_THROW(Format(message, throwing), std::runtime_error);
        EXPECT_EQ(Format(message, localizer), "a\tb\tc");
    }
}

TEST(MessageFormatIntoAnother, CoversTheLowerLevelsAndStoresEachText) {
    TemplateLocalizer localizer;
    const Message message = Wrapped({"inner", "middle", "outer"});
    Message localized;
    EXPECT_EQ(Format(message, localized, localizer), "outer\tmiddle\t\tinner");
    const Message* level = &localized;
    for (const char* text : {"outer", "middle", "inner"}) {
        ASSERT_NE(level, nullptr);
        EXPECT_STREQ(level->GetLocalizedText(kLanguage), text);
        EXPECT_EQ(level->GetTemplate(), nullptr);
        level = level->GetLowerLevelMessageOrNULL();
    }
    EXPECT_EQ(level, nullptr);
}

TEST(MessageFormatIntoAnother, LeavesSameLevelMessagesOutOfBoth) {
    TemplateLocalizer localizer;
    Message message(300, 1, "second cause");
    message.PrependBy(300, 1, "first cause");
    message.WrapBy(300, 1, "first");
    Message second(300, 1, "second");
    second.PrependBy(message);
    Message localized;
    EXPECT_EQ(Format(second, localized, localizer), "first\tfirst cause");
    EXPECT_EQ(localized.GetSameLevelMessageOrNULL(), nullptr);
    ASSERT_NE(localized.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_EQ(localized.GetLowerLevelMessageOrNULL()->GetSameLevelMessageOrNULL(), nullptr);
    Message all = second;
    EXPECT_EQ(Format(all, localizer), "first\tfirst cause\tsecond causesecond");
}

TEST(MessageFormatIntoAnother, NullTextIsUnknownAndNotStored) {
    RecordingLocalizer localizer(nullptr);
    const Message message = Wrapped({"inner", "outer"});
    Message localized;
    EXPECT_EQ(Format(message, localized, localizer), "Unknown.\tUnknown.");
    EXPECT_EQ(localized.GetLocalizedText(kLanguage), nullptr);
    ASSERT_NE(localized.GetLowerLevelMessageOrNULL(), nullptr);  // the level is there, and empty
    EXPECT_TRUE(localized.GetLowerLevelMessageOrNULL()->IsEmpty());
}

TEST(MessageFormatIntoAnother, NullTextLeavesTheOneThatIsThere) {
    RecordingLocalizer localizer(nullptr);
    const Message message(300, 1, "x");
    Message localized;
    localized.SetLocalizedText(kLanguage, "kept");
    EXPECT_EQ(Format(message, localized, localizer), "Unknown.");
    EXPECT_STREQ(localized.GetLocalizedText(kLanguage), "kept");
}

TEST(MessageFormatIntoAnother, AddsToWhatIsThere) {
    TemplateLocalizer localizer;
    const Message message = Wrapped({"inner", "outer"});
    Message localized = message;
    Format(message, localized, localizer);
    EXPECT_STREQ(localized.GetTemplate(), "outer");
    EXPECT_STREQ(localized.GetLocalizedText(kLanguage), "outer");
    const Message* lower = localized.GetLowerLevelMessageOrNULL();
    ASSERT_NE(lower, nullptr);
    EXPECT_STREQ(lower->GetTemplate(), "inner");
    EXPECT_STREQ(lower->GetLocalizedText(kLanguage), "inner");
    EXPECT_EQ(lower->GetLowerLevelMessageOrNULL(), nullptr);
}

TEST(MessageFormatIntoAnother, MayStoreIntoTheMessageItself) {
    TemplateLocalizer localizer;
    Message message = Wrapped({"inner", "middle", "outer"});
    EXPECT_EQ(Format(message, message, localizer), "outer\tmiddle\t\tinner");
    EXPECT_EQ(FormatSimply(message, kLanguage), "outer\tmiddle\t\tinner");  // stored texts, with no bracket
}

TEST(MessageFormatIntoAnother, ThrowingLocalizerLeavesTheTextsBefore) {
    const Message message = Wrapped({"c", "b", "a"});
    Message localized;
    ThrowingLocalizer throwing(2);
    EXPECT_THROW(Format(message, localized, throwing), std::runtime_error);
    EXPECT_STREQ(localized.GetLocalizedText(kLanguage), "a");
    ASSERT_NE(localized.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_STREQ(localized.GetLowerLevelMessageOrNULL()->GetLocalizedText(kLanguage), "b");
}

class MessageFormatWithoutMemory : public testing::Test {
protected:
    MessageFormatWithoutMemory() {
        mList.PrependBy(300, 1, "first");
        mList.WrapBy(300, 1, "outer");
    }
    Message mList{300, 1, "second"};
    TemplateLocalizer mLocalizer;
};

TEST_F(MessageFormatWithoutMemory, ConstantMessageGivesItsTextOrThrows) {
    const std::size_t before = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([this] {
        try {
            const ReturnString text = FormatMessage(mList, 0);
            EXPECT_STREQ(text.c_str(),
                         "outer (Server message 1)\tfirst (Server message 1)\tsecond (Server message 1)");
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(failures, 3u);  // the text, a later message on a level above, the result
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST_F(MessageFormatWithoutMemory, WalkWithWritingLosesOnlyWhatFindsNoPlace) {
    const std::size_t before = test::LiveBlocks();
    bool failed = true;
    for (std::size_t index = 0; failed; ++index) {
        Message message = mList;
        try {
            const test::FailingAllocation failing(index);
            const ReturnString text = FormatMessage(message, kLanguage, mLocalizer);
            failed = failing.HasFailed();
            EXPECT_STREQ(text.c_str(), "outer\tfirst\tsecond");
        } catch (const std::bad_alloc&) {
        }
        const std::string left = Format(message, mLocalizer);
        EXPECT_TRUE(left == "outer\tfirst\tsecond" || left == "outer\tfirst" || left == "outer") << left;
        if (!failed) {
            EXPECT_GE(index, 10u);
        }
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST_F(MessageFormatWithoutMemory, StoringWalkLeavesAWellFormedMessage) {
    const Message message = Wrapped({"inner", "middle", "outer"});
    const std::size_t before = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([this, &message] {
        Message localized;
        try {
            const ReturnString text = FormatMessage(message, localized, kLanguage, mLocalizer);
            EXPECT_STREQ(text.c_str(), "outer\tmiddle\t\tinner");
        } catch (const std::bad_alloc&) {
        }
        const char* const texts[] = {"outer", "middle", "inner"};
        std::size_t depth = 0;
        for (const Message* level = &localized; level != nullptr;
             level = level->GetLowerLevelMessageOrNULL()) {
            ASSERT_LT(depth, 3u);
            const char* text = level->GetLocalizedText(kLanguage);
            if (text != nullptr) {
                EXPECT_STREQ(text, texts[depth]);
            }
            ++depth;
        }
    });
    EXPECT_GE(failures, 10u);
    EXPECT_EQ(test::LiveBlocks(), before);
}

// Runs `task` on a stack of 128 KiB.
void RunOnASmallStack(std::function<void()> task) {
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, 128 * 1024), 0);
    pthread_t thread;
    const auto run = [](void* argument) -> void* {
        (*static_cast<std::function<void()>*>(argument))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &task), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

TEST(MessageFormatOfADeepTree, TakesNoStack) {
    constexpr std::size_t depth = 10000;
    RunOnASmallStack([] {
        Message message(300, 1, "x");
        for (std::size_t level = 1; level != depth; ++level) message.WrapBy(300, 1, "x");
        TemplateLocalizer localizer;
        Message localized;
        // one "x" for each level, and 0, 1, ... depth - 1 tabs
        EXPECT_EQ(Format(message, localized, localizer).size(), depth + depth * (depth - 1) / 2);
        EXPECT_EQ(FormatMessage(localized, kLanguage).GetLength(), depth + depth * (depth - 1) / 2);
    });
}

TEST(MessageFormatOfADeepTree, WalkWithWritingTakesNoStackEither) {
    constexpr std::size_t depth = 2000;
    RunOnASmallStack([] {
        Message message(300, 1, "x");
        for (std::size_t level = 1; level != depth; ++level) message.WrapBy(300, 1, "x");
        TemplateLocalizer localizer;
        EXPECT_EQ(Format(message, localizer).size(), depth + depth * (depth - 1) / 2);
        EXPECT_EQ(Format(message, localizer).size(), depth + depth * (depth - 1) / 2);
    });
}

TEST(MessageFormatOfALongList, GivesEveryMessageOfTheLevel) {
    constexpr int count = 3000;
    Message message(300, 1, "x");
    for (int i = 1; i != count; ++i) message.PrependBy(300, 1, "x");
    TemplateLocalizer localizer;
    Message copy = message;
    EXPECT_EQ(Format(copy, localizer), std::string(count, 'x'));
    EXPECT_EQ(FormatMessage(message, 0).GetLength(), count * std::string("x (Server message 1)").size());
}

TEST(MessageFormatReading, SaysWhatTheWritingFormSaysAndLeavesTheMessageAlone) {
    Message message(300, 1, "inner");
    message.PrependBy(300, 2, "before");
    message.WrapBy(300, 3, "outer");
    const Message original(message);
    const std::string layout = test::Layout(&message);
    TemplateLocalizer localizer;
    const std::string text = FormatMessage(std::as_const(message), kLanguage, localizer).c_str();
    EXPECT_EQ(text, "outer\tbefore\tinner");
    EXPECT_EQ(test::Layout(&message), layout);
    EXPECT_EQ(Format(message, localizer), text);
    EXPECT_NE(test::Layout(&message), layout);
}

TEST(MessageFormatReading, TakesMemoryLinearInTheTextHoweverDeepTheTree) {
    constexpr std::size_t depth = 2000;
    Message message(300, 1, "x");
    for (std::size_t level = 1; level != depth; ++level) message.WrapBy(300, 1, "x");
    TemplateLocalizer localizer;
    const std::size_t before = test::AllocatedBytes();
    const std::size_t length = FormatMessage(std::as_const(message), kLanguage, localizer).GetLength();
    EXPECT_EQ(length, depth + depth * (depth - 1) / 2);
    EXPECT_LT(test::AllocatedBytes() - before, 8 * length);
}

TEST(MessageFormatReading, ALocalizerWithoutATextLeavesUnknown) {
    const Message message(300, 1, nullptr);
    test::RecordingLocalizer localizer(nullptr);
    EXPECT_STREQ(FormatMessage(message, kLanguage, localizer).c_str(), "Unknown.");
}

// One block for the texts, and the result's. No message has one of its own.
TEST(MessageFormat, ThreeWrappedLevelsTakeTwoAllocations) {
    Message record(MESSAGE_DOMAIN_SERVER, 103, "The file %1 can't be opened.");
    record << "names.txt";
    record.WrapBy(MESSAGE_DOMAIN_SERVER, 104, "The report can't be loaded.");
    record.WrapBy(MESSAGE_DOMAIN_SERVER, 105, "The project %1 is not open.") << "Sales";
    const std::size_t before = test::AllocationCount();
    const ReturnString text = FormatMessage(std::as_const(record), 0);
    EXPECT_EQ(test::AllocationCount() - before, 2u);
    EXPECT_STREQ(text.c_str(),
                 "The project Sales is not open. (Server message 105)\tThe report can't be loaded. (Server "
                 "message 104)\t\tThe file names.txt can't be opened. (Server message 103)");
}

// Sixteen parameters fit without a block; the next one moves all of them.
TEST(MessageFormat, SeventeenthParameterOpensABlock) {
    for (const int count : {15, 16, 17, 40}) {
        Message message(MESSAGE_DOMAIN_SERVER, 1, "%9");
        std::string behind;
        for (int i = 1; i <= count; ++i) {
            message << i;
            if (i != 9) behind += "[" + std::to_string(i) + "]";
        }
        const std::string expected = "9" + behind + " (Server message 1)";
        EXPECT_EQ(FormatMessage(std::as_const(message), 0).c_str(), expected);
        SimpleMessageLocalizer localizer;
        EXPECT_EQ(message.Localize(localizer, 0).c_str(), expected);
    }
}

}  // namespace
