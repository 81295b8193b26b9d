#include <Base/frame/WideLiteral.h>
#include <Base/messages/Message.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "tests/messages/RecordingLocalizer.h"
#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase;
using test::RecordingLocalizer;
using Texts = std::vector<std::string>;

constexpr unsigned short kLanguage = 1033;

// A message whose records are written by hand, for records that no operation writes.
class HandMadeMessage {
public:
    void Add(unsigned char tag, std::string_view payload) {
        Put(static_cast<std::uint32_t>(payload.size() + 5), 4);
        mBytes.push_back(tag);
        mBytes.insert(mBytes.end(), payload.begin(), payload.end());
        const auto capacity = static_cast<std::uint32_t>(mBytes.size());
        std::memcpy(mBytes.data(), &capacity, sizeof capacity);
    }
    const Message& Get() const { return *reinterpret_cast<const Message*>(mBytes.data()); }

private:
    void Put(std::uint32_t value, int width) {
        for (int i = 0; i != width; ++i) mBytes.push_back(static_cast<unsigned char>(value >> 8 * i));
    }
    std::vector<unsigned char> mBytes = std::vector<unsigned char>(16);
};

std::string Localized(const Message& message, RecordingLocalizer& localizer, unsigned short language) {
    const ReturnString text = message.Localize(localizer, language);
    return text.c_str() == nullptr ? "(null)" : text.c_str();
}

TEST(MessageTextLocalize, LocalizerIsGivenAllThatTheMessageHolds) {
    Message message(300, 42, "%1 and %2");
    message << "a"
            << "b";
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "made");
    ASSERT_EQ(localizer.calls.size(), 1u);
    EXPECT_EQ(localizer.calls[0].language, kLanguage);
    EXPECT_EQ(localizer.calls[0].domain, 300);
    EXPECT_EQ(localizer.calls[0].id, 42);
    EXPECT_EQ(localizer.calls[0].textTemplate, "%1 and %2");
    EXPECT_EQ(localizer.calls[0].parameters, (Texts{"a", "b"}));
}

TEST(MessageTextLocalize, EmptyMessageHasDomainAndIdZeroNoTemplateAndNoParameters) {
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(Message(), localizer, 7), "made");
    EXPECT_EQ(localizer.calls[0].domain, 0);
    EXPECT_EQ(localizer.calls[0].id, 0);
    EXPECT_EQ(localizer.calls[0].textTemplate, RecordingLocalizer::kNull);
    EXPECT_TRUE(localizer.calls[0].parameters.empty());
}

TEST(MessageTextLocalize, NullTextOfTheLocalizerStaysNull) {
    RecordingLocalizer localizer(nullptr);
    EXPECT_EQ(Localized(Message(300, 1, "x"), localizer, 0), "(null)");
}

TEST(MessageTextLocalize, ParametersKeepTheirOrderOverAllBlocks) {
    Message message(300, 1, nullptr);
    Texts expected;
    for (int i = 0; i != 100; ++i) {
        expected.push_back(std::string(static_cast<std::size_t>(i) % 13, 'p') + std::to_string(i));
        message << expected.back().c_str();
    }
    RecordingLocalizer localizer("");
    Localized(message, localizer, 0);
    EXPECT_EQ(localizer.calls[0].parameters, expected);
}

TEST(MessageTextLocalize, StoredTextWinsAndTheLocalizerIsNotAsked) {
    Message message(100, 5, "template");
    message.SetLocalizedText(kLanguage, "stored");
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "stored");
    EXPECT_TRUE(localizer.calls.empty());
    EXPECT_EQ(test::FormatSimply(message, kLanguage), "stored");  // and no further texts
}

TEST(MessageTextLocalize, StoredTextOfAnotherLanguageIsIgnored) {
    Message message(300, 1, "template");
    message.SetLocalizedText(0, "neutral");
    message.SetLocalizedText(1031, "deutsch");
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "made");
    EXPECT_EQ(Localized(message, localizer, 1031), "deutsch");
    EXPECT_EQ(Localized(message, localizer, 0), "neutral");
}

TEST(MessageTextLocalize, EmptyStoredTextIsAText) {
    Message message;
    message.SetLocalizedText(kLanguage, "");
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "");
}

TEST(MessageTextLocalize, RemovedRecordsDoNotCount) {
    Message message(300, 1, "short");
    message.SetLocalizedText(kLanguage, "stored");
    message.SetLocalizedText(kLanguage, nullptr);
    message.SetTemplate("a template that needs a record of its own");
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "made");
    EXPECT_EQ(localizer.calls[0].textTemplate, "a template that needs a record of its own");
    message.SetTemplate(nullptr);
    Localized(message, localizer, kLanguage);
    EXPECT_EQ(localizer.calls[1].textTemplate, RecordingLocalizer::kNull);
}

TEST(MessageTextLocalize, OfSeveralTemplatesAndHeadersTheLastCountsAndOfStoredTextsTheFirst) {
    using namespace std::string_view_literals;
    HandMadeMessage message;
    message.Add(1, "\1\0\0\0\2\0\12\0"sv);
    message.Add(2, "first\0"sv);
    message.Add(2, "last\0"sv);
    message.Add(1, "\3\0\0\0\4\0\12\0"sv);
    message.Add(6, "\7\0one\0"sv);
    message.Add(6, "\7\0two\0"sv);
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message.Get(), localizer, 7), "one");
    EXPECT_EQ(Localized(message.Get(), localizer, 8), "made");
    EXPECT_EQ(localizer.calls[0].id, 3);
    EXPECT_EQ(localizer.calls[0].domain, 4);
    EXPECT_EQ(localizer.calls[0].textTemplate, "last");
}

TEST(MessageTextLocalize, RecordsOfUnknownTagsAreSteppedOver) {
    using namespace std::string_view_literals;
    HandMadeMessage message;
    message.Add(9, "?");
    message.Add(0xFF, "\0\0\0"sv);
    message.Add(3, "parameter\0"sv);
    RecordingLocalizer localizer("made");
    Localized(message.Get(), localizer, 8);
    EXPECT_EQ(localizer.calls[0].parameters, (Texts{"parameter"}));
}

TEST(MessageTextLocalize, NestedMessagesHaveNoPartInIt) {
    Message message(300, 1, "inner");
    message << "of inner";
    message.SetLocalizedText(kLanguage, "inner text");
    message.WrapBy(301, 2, "outer");
    RecordingLocalizer localizer("made");
    EXPECT_EQ(Localized(message, localizer, kLanguage), "made");
    EXPECT_EQ(localizer.calls[0].textTemplate, "outer");
    EXPECT_TRUE(localizer.calls[0].parameters.empty());
}

TEST(MessageTextGetMessage, GivesTheWideTextThatWasSet) {
    Message message(300, 1, "template");
    message.SetMessage("wide"_w);
    EXPECT_EQ(test::Wide(message.GetMessage()), u"wide");
}

TEST(MessageTextGetMessage, MakesTheTextOfTheWholeTreeInEnglish) {
    Message message(100, 5, nullptr);
    message.WrapBy(300, 42, "Cannot open %1") << "x";
    EXPECT_EQ(test::Wide(message.GetMessage()),
              u"Cannot open x (Server message 42)\tAccess is denied. (Windows API error 5)");
    Message stored;
    stored.SetLocalizedText(0, "neutral");
    stored.SetLocalizedText(0x409, "english");
    EXPECT_EQ(test::Wide(stored.GetMessage()), u"english");
    EXPECT_EQ(test::Wide(Message().GetMessage()), u"Unknown error. (Unknown message 0)");
}

TEST(MessageTextGetMessage, TextThatWasSetIsThereWhereTheEnglishNarrowOneIsNot) {
    Message message;
    message.SetMessage("abc"_w);
    EXPECT_EQ(test::FormatSimply(message, 0), "abc");
    EXPECT_EQ(test::FormatSimply(message, 0x409), "Unknown error. (Unknown message 0)");
    EXPECT_EQ(test::Wide(message.GetMessage()), u"abc");
}

TEST(MessageTextGetMessage, TwiceGivesTheSameAddress) {
    const Message message(300, 42, "text");
    const unsigned short* text = message.GetMessage();
    EXPECT_EQ(message.GetMessage(), text);
    EXPECT_EQ(test::Wide(text), u"text (Server message 42)");
}

TEST(MessageTextGetMessage, AddressIsEvenWhereverTheMessageStands) {
    unsigned char memory[302];
    for (const std::size_t shift : {0u, 1u}) {
        for (const unsigned int size : {16u, 60u, 300u}) {
            Message::PlacementPtr message(memory + shift, size, 300, 42, "some text");
            const unsigned short* text = message->GetMessage();
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text) % 2, 0u);
            EXPECT_EQ(test::Wide(text), u"some text (Server message 42)");
            EXPECT_EQ(message->GetMessage(), text);
        }
    }
}

TEST(MessageTextGetMessage, DecodesUtf8AndReplacesWhatIsNone) {
    Message message;
    message.SetLocalizedText(0x409, "\xC3\xBC\xF0\x9F\x98\x80|\xFF|");
    EXPECT_EQ(test::Wide(message.GetMessage()), u"\u00FC\xD83D\xDE00|\uFFFD|");
}

TEST(MessageTextGetMessage, KeptTextOutlivesChangesOfTheMessage) {
    Message message(300, 42, "before");
    const unsigned short* text = message.GetMessage();
    message.SetTemplate("after");
    message << "parameter";
    message.SetDomainAndID(100, 5);
    message.SetLocalizedText(0x409, "stored");
    EXPECT_EQ(message.GetMessage(), text);
    EXPECT_EQ(test::Wide(text), u"before (Server message 42)");
}

TEST(MessageTextGetMessage, KeptTextIsReplacedOrDroppedByWhatRewritesTheMessage) {
    const Message other(300, 1, "other");
    const auto kept = [] {
        Message message(300, 42, "before");
        message.GetMessage();
        return message;
    };
    Message set = kept();
    set.SetMessage("set"_w);
    EXPECT_EQ(test::Wide(set.GetMessage()), u"set");
    Message cleared = kept();
    cleared.Clear();
    EXPECT_EQ(test::Wide(cleared.GetMessage()), u"Unknown error. (Unknown message 0)");
    Message assigned = kept();
    assigned = other;
    EXPECT_EQ(test::Wide(assigned.GetMessage()), u"other (Server message 1)");
    Message wrapped = kept();
    wrapped.WrapBy(300, 43, "outer");
    EXPECT_EQ(test::Wide(wrapped.GetMessage()), u"outer (Server message 43)\tbefore (Server message 42)");
    Message prepended = kept();
    prepended.PrependBy(300, 43, "first");
    EXPECT_EQ(test::Wide(prepended.GetMessage()), u"first (Server message 43)before (Server message 42)");
    Message behind = kept();
    behind.PrependBy(other);
    EXPECT_EQ(test::Wide(behind.GetMessage()), u"other (Server message 1)before (Server message 42)");
}

TEST(MessageTextGetMessage, KeptTextGoesAlongWithACopy) {
    Message message(300, 42, "before");
    message.GetMessage();
    message.SetTemplate("after");
    const Message copy = message;
    EXPECT_EQ(test::Wide(copy.GetMessage()), u"before (Server message 42)");
}

TEST(MessageTextGetMessage, LongTextHasRoom) {
    Message message(300, 42, std::string(100000, 'x').c_str());
    EXPECT_EQ(test::Wide(message.GetMessage()).size(), 100000 + std::strlen(" (Server message 42)"));
}

// A nested message is full: its text goes to a block that its parent does not know.
TEST(MessageTextGetMessage, OfANestedMessageIsKeptInABlockThatCopiesShareAndNobodyFrees) {
    const std::size_t before = test::LiveBlocks();
    void* block = nullptr;
    {
        Message message(300, 1, "inner");
        message.WrapBy(300, 2, "outer");
        const Message* nested = message.GetLowerLevelMessageOrNULL();
        ASSERT_NE(nested, nullptr);
        const unsigned short* text = nested->GetMessage();
        EXPECT_EQ(test::Wide(text), u"inner (Server message 1)");
        EXPECT_EQ(nested->GetMessage(), text);
        block = const_cast<unsigned char*>(test::BlockView(nested).next);
        ASSERT_NE(block, nullptr);
        const Message copy = message;
        EXPECT_EQ(copy.GetLowerLevelMessageOrNULL()->GetMessage(), text);
    }
    EXPECT_EQ(test::LiveBlocks(), before + 1);
    ::operator delete(block);
}

TEST(MessageTextGetMessage, WantOfMemoryLeavesTheMessageWellFormed) {
    const char* const text = "a template that leaves no room in the block for the wide text";
    const std::size_t before = test::LiveBlocks();
    bool failed = true;
    bool hadNoPlace = false;
    for (std::size_t index = 0; failed; ++index) {
        const Message message(300, 42, text);
        try {
            const test::FailingAllocation failing(index);
            const unsigned short* wide = message.GetMessage();
            failed = failing.HasFailed();
            EXPECT_EQ(wide == nullptr, failed);
            hadNoPlace |= failed;
        } catch (const std::bad_alloc&) {
        }
        EXPECT_STREQ(message.GetTemplate(), text);
        EXPECT_EQ(test::Wide(message.GetMessage()).substr(0, 10), u"a template");
        if (!failed) {
            EXPECT_GE(index, 3u);
        }
    }
    EXPECT_TRUE(hadNoPlace);
    EXPECT_EQ(test::LiveBlocks(), before);
}

}  // namespace
