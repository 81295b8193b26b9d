#include <Base/ZBase.h>
#include <ZLiteXML/XMLException.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "tests/support/Allocations.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/XmlDocuments.h"

namespace {

using test::ToElement;
using ZBase::Message;

TEST(MessageXmlWriting, EmptyMessageIsAnElementWithoutChildren) {
    EXPECT_EQ(ToElement(Message()), "<message/>");
}

TEST(MessageXmlWriting, FieldsComeInTheirOrderWhateverTheOrderOfTheRecords) {
    Message message;
    message.SetLocalizedText(0, "text");
    message << "one";
    message.SetTemplate("%1 %2");
    message << "two";
    EXPECT_EQ(ToElement(message),
              "<message><template>%1 %2</template><parameter>one</parameter><parameter>two</parameter>"
              "<text language_id=\"0\">text</text></message>");
}

TEST(MessageXmlWriting, HeaderIsADomainNameAndADecimalId) {
    EXPECT_EQ(ToElement(Message(300, -2147483647 - 1, nullptr)),
              "<message><domain>Server</domain><id>-2147483648</id></message>");
    EXPECT_EQ(ToElement(Message(101, 2147483647, nullptr)),
              "<message><domain>Windows Standard Exception</domain><id>2147483647</id></message>");
    EXPECT_EQ(ToElement(Message(999, 7, nullptr)), "<message><domain>Unknown</domain><id>7</id></message>");
    EXPECT_EQ(ToElement(Message(214, 7, nullptr)),
              "<message><domain>APPLE Signal</domain><id>7</id></message>");
}

TEST(MessageXmlWriting, LanguagesAreUpperCaseHexadecimal) {
    Message message;
    message.SetLocalizedText(1033, "a");
    message.SetLocalizedText(0xFFFF, "b");
    message.SetLocalizedText(0x0C0A, "");
    EXPECT_EQ(ToElement(message),
              "<message><text language_id=\"409\">a</text><text language_id=\"FFFF\">b</text>"
              "<text language_id=\"C0A\"/></message>");
}

TEST(MessageXmlWriting, LowerLevelComesBeforeSameLevelInsideTheMessage) {
    Message message(300, 1, nullptr);
    ZBase::MessageCursor cursor(message);
    cursor.GoToSameLevelMessage(true);
    cursor.GetCurrentMessage().SetTemplate("same");
    cursor.GoToParent();
    cursor.GoToLowerLevelMessage(true);
    cursor.GetCurrentMessage().SetTemplate("lower");
    cursor.GoToParent();
    EXPECT_EQ(ToElement(message),
              "<message><domain>Server</domain><id>1</id>"
              "<lower_level_message><template>lower</template></lower_level_message>"
              "<same_level_message><template>same</template></same_level_message></message>");
}

// A tree with every kind of step up: from below, from the side, over several levels at once.
TEST(MessageXmlWriting, ClimbsOutOfEachLevelByTheStepThatLedIn) {
    Message message(300, 1, nullptr);
    ZBase::MessageCursor cursor(message);
    cursor.GoToLowerLevelMessage(true);  // 2
    cursor.GoToLowerLevelMessage(true);  // 3
    cursor.GoToSameLevelMessage(true);   // 4, behind 3
    cursor.GetCurrentMessage() << "4";
    cursor.GoToParent();
    cursor.GoToParent();
    cursor.GoToSameLevelMessage(true);  // 5, behind 2
    cursor.GoToLowerLevelMessage(true);
    cursor.GetCurrentMessage() << "6";
    cursor.GoToParent();
    cursor.GoToParent();
    cursor.GoToParent();
    EXPECT_EQ(ToElement(message),
              "<message><domain>Server</domain><id>1</id><lower_level_message>"
              "<lower_level_message><same_level_message><parameter>4</parameter></same_level_message>"
              "</lower_level_message>"
              "<same_level_message><lower_level_message><parameter>6</parameter></lower_level_message>"
              "</same_level_message>"
              "</lower_level_message></message>");
}

TEST(MessageXmlWriting, LeavesOutNumberFormatWideTextAndDeadRecords) {
    Message message(300, 1, "short");
    message << Message::WideHex << 255;
    message.GetMessage();
    message.SetTemplate("a template that has no room in the old one");
    EXPECT_EQ(ToElement(message),
              "<message><domain>Server</domain><id>1</id><template>a template that has no room in the old "
              "one</template><parameter>0x000000FF</parameter></message>");
}

TEST(MessageXmlWriting, LeavesTheMessageAsItIs) {
    Message message(300, 1, "outer");
    message.WrapBy(300, 2, "wrapper");
    const auto bytes = [&message] {
        return std::string(reinterpret_cast<const char*>(&message), sizeof message);
    };
    const std::string before = bytes();
    ToElement(message);
    EXPECT_EQ(bytes(), before);
}

TEST(MessageXmlWriting, CharacterThatXmlCannotHoldLeavesNothingBehind) {
    for (const char* text : {"\x01", "a\x0B", "\xEF\xBF\xBE", "\xFF", "caf\xE9", "\xED\xA0\x80"}) {
        Message message(300, 1, "outer");
        message << text;
        std::string document = "as it was";
        const auto writer = ZLiteXML::CreateStringWriter(document);
        try {
            ZBase::SerializeToXML(message, *writer);
            ADD_FAILURE() << text;
        } catch (const Message& failure) {
            const std::string said = ZBase::FormatMessage(failure, 0).c_str();
            EXPECT_NE(said.find(" in element \"parameter\"."), std::string::npos) << said;
        }
        EXPECT_EQ(document, "as it was");
    }
}

class MessageXmlWritingOfAFile : public test::ScratchFolder {
protected:
    static std::string ReadAll(const std::filesystem::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(mFolder), {}));
    }
};

// Most of the document is written when the last message turns out to be too large.
TEST_F(MessageXmlWritingOfAFile, CharacterThatXmlCannotHoldLeavesNothingHalfWritten) {
    Message message;
    message << "\x01";
    for (int number = 0; number < 3000; ++number)
        message.WrapBy(300, number, "a template that is in the way");
    const std::string old = Write("old.xml", "old");
    for (const std::string& file : {old, (mFolder / "new.xml").string()}) {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        EXPECT_THROW(ZBase::SerializeToXML(message, *writer), ZLiteXML::XMLException);
        EXPECT_EQ(Files(), 1u);
        EXPECT_EQ(ReadAll(old), "old");
    }
}

TEST_F(MessageXmlWritingOfAFile, HoldsTheWholeMessage) {
    const std::string file = (mFolder / "new.xml").string();
    ZBase::SerializeToXML(Message(300, 1, "t"), *ZLiteXML::CreateFileWriter(file.c_str()));
    EXPECT_EQ(ReadAll(file), test::ToXML(Message(300, 1, "t")));
}

class FailingWriter final : public ZLiteXML::UTF8Writer, public ZSynch::ReferenceCountedImpl<unsigned int> {
public:
    explicit FailingWriter(int events) : mEvents(events) {}
    void StartElement(const char*) override { Count(); }
    void Attribute(const char*, const char*) override { Count(); }
    void Characters(const char*) override { Count(); }
    void Comment(const char*) override { ADD_FAILURE(); }
    void EndElement(const char*) override { Count(); }
    void OnFinalRelease() override { ++sEnded; }

    static int sEnded;

private:
    void Count() {
        if (mEvents-- == 0) throw 42;
    }
    int mEvents;
};

int FailingWriter::sEnded = 0;

TEST(MessageXmlWriting, FailureOfTheWriterArrivesAsItIs) {
    Message message(300, 1, "outer");
    message.SetLocalizedText(0, "text");
    message.WrapBy(300, 2, "wrapper");
    for (int events = 0; events < 20; ++events) {
        const int ended = FailingWriter::sEnded;
        {
            const ZBase::SmartPtrI<FailingWriter> writer(new FailingWriter(events));
            EXPECT_THROW(ZBase::SerializeToXML(message, *writer), int) << events;
            EXPECT_EQ(FailingWriter::sEnded, ended) << "it is still held here";
        }
        EXPECT_EQ(FailingWriter::sEnded, ended + 1);
    }
}

TEST(MessageXmlWriting, MessageOfManyLevelsIsWritten) {
    constexpr int levels = 10000;
    Message message(300, 0, nullptr);
    ZBase::MessageCursor cursor(message);
    for (int level = 1; level < levels; ++level) cursor.GoToSameLevelMessage(true);
    while (cursor.GoToParent()) {
    }
    const std::string document = ToElement(message);
    std::size_t count = 0;
    for (std::size_t at = document.find("<same_level_message"); at != std::string::npos;
         at = document.find("<same_level_message", at + 1))
        ++count;
    EXPECT_EQ(count, levels - 1u);
    EXPECT_TRUE(document.ends_with("</same_level_message></message>"));
}

TEST(MessageXmlWriting, OutOfMemoryLeavesNothingBehind) {
    Message message(300, 1, "outer");
    message << "parameter";
    message.SetLocalizedText(1033, "text");
    message.WrapBy(300, 2, "wrapper").PrependBy(300, 3, "first");
    const std::string whole = ToElement(message);
    const std::size_t live = test::LiveBlocks();
    std::size_t failures = 0;
    {
        failures = test::ForEachFailingAllocation([&] {
            std::string document;
            try {
                ZBase::SerializeToXML(message,
                                      *ZLiteXML::CreateStringWriter(document, {.declaration = false}));
                EXPECT_EQ(document, whole);
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(document, "");
            }
        });
    }
    EXPECT_GT(failures, 5u);
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
