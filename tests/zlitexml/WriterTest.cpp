#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <sys/resource.h>
#include <sys/stat.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>

#include "tests/support/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using ZLiteXML::UTF8Writer;

using Events = std::function<void(UTF8Writer&)>;

std::string Written(const Events& events, const ZLiteXML::WriterOptions& options = {.declaration = false}) {
    std::string document;
    events(*ZLiteXML::CreateStringWriter(document, options));
    return document;
}

// What a writer says of events that it refuses, of which nothing is left.
std::string Refusal(const Events& events) {
    std::string document = "as it was";
    const auto writer = ZLiteXML::CreateStringWriter(document);
    std::string said = "nothing";
    try {
        events(*writer);
    } catch (const ZLiteXML::XMLException& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), -1);
        said = ZBase::FormatMessage(failure, 0).c_str();
        EXPECT_THROW(writer->StartElement("next"), ZBase::ExceptionImpl<ZLiteXML::XMLException>);
    }
    EXPECT_EQ(document, "as it was");
    return said;
}

TEST(Writer, DeclaresTheEncodingUnlessItIsToldNotTo) {
    const Events events = [](UTF8Writer& writer) {
        writer.StartElement("a");
        writer.EndElement("a");
    };
    EXPECT_EQ(Written(events, {}), "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a/>\n");
    EXPECT_EQ(Written(events), "<a/>");
}

TEST(Writer, EscapesWhatWouldBeReadAsSomethingElse) {
    EXPECT_EQ(Written([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.Attribute("b", "<&>\"'\t\n\r \xC3\xA9");
                  writer.Characters("<&>\"'\t\n\r ]]> \xC3\xA9\x7F");
                  writer.EndElement("a");
              }),
              "<a b=\"&lt;&amp;&gt;&quot;'&#9;&#10;&#13; \xC3\xA9\">"
              "&lt;&amp;&gt;\"'\t\n&#13; ]]&gt; \xC3\xA9\x7F</a>");
}

TEST(Writer, IndentsElementsAndLeavesTextsAlone) {
    const std::string document = Written(
        [](UTF8Writer& writer) {
            writer.StartElement("a");
            writer.Comment(" c ");
            writer.StartElement("b");
            writer.Characters("text");
            writer.EndElement("b");
            writer.StartElement("c");
            writer.StartElement("d");
            writer.EndElement("d");
            writer.EndElement("c");
            writer.StartElement("mixed");
            writer.Characters("x");
            writer.StartElement("e");
            writer.EndElement("e");
            writer.EndElement("mixed");
            writer.EndElement("a");
        },
        {.declaration = true, .indentation = 2});
    EXPECT_EQ(
        document,
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a>\n  <!-- c -->\n  <b>text</b>\n  <c>\n    <d/>\n"
        "  </c>\n  <mixed>x<e/></mixed>\n</a>\n");
}

TEST(Writer, DeepDocumentIsNotMadeOfSpaces) {
    const std::string document = Written(
        [](UTF8Writer& writer) {
            for (int level = 0; level < 10000; ++level) writer.StartElement("a");
            for (int level = 0; level < 10000; ++level) writer.EndElement("a");
        },
        {.declaration = false, .indentation = 4});
    EXPECT_LT(document.size(), 10000u * 2 * (32 * 4 + 5));
}

TEST(Writer, TakesEveryCharacterOfXmlAndNoOther) {
    for (unsigned int value = 1; value < 0x110000; value += value < 0x3000 || value > 0xD000 ? 1 : 97) {
        if (value == 0x12000) value = 0x10FF00;
        std::string text;
        if (value < 0x80) {
            text = {static_cast<char>(value)};
        } else if (value < 0x800) {
            text = {static_cast<char>(0xC0 | value >> 6), static_cast<char>(0x80 | (value & 0x3F))};
        } else if (value < 0x10000) {
            text = {static_cast<char>(0xE0 | value >> 12), static_cast<char>(0x80 | (value >> 6 & 0x3F)),
                    static_cast<char>(0x80 | (value & 0x3F))};
        } else {
            text = {static_cast<char>(0xF0 | value >> 18), static_cast<char>(0x80 | (value >> 12 & 0x3F)),
                    static_cast<char>(0x80 | (value >> 6 & 0x3F)), static_cast<char>(0x80 | (value & 0x3F))};
        }
        const bool isCharacter = value == 9 || value == 10 || value == 13 ||
                                 (value >= 0x20 && value < 0xD800) || (value >= 0xE000 && value < 0xFFFE) ||
                                 value >= 0x10000;
        std::string document;
        const auto writer = ZLiteXML::CreateStringWriter(document);
        writer->StartElement("a");
        bool taken = true;
        try {
            writer->Characters(text.c_str());
        } catch (const ZLiteXML::XMLException&) {
            taken = false;
        }
        ASSERT_EQ(taken, isCharacter) << value;
    }
}

TEST(Writer, NamesTheCharacterAndThePlace) {
    const auto characters = [](const char* text) {
        return Refusal([text](UTF8Writer& writer) {
            writer.StartElement("outer");
            writer.StartElement("inner");
            writer.Characters(text);
        });
    };
    EXPECT_EQ(characters("ab\x01"), "XML cannot hold the character U+0001 in element \"inner\".");
    EXPECT_EQ(characters("\xEF\xBF\xBF"), "XML cannot hold the character U+FFFF in element \"inner\".");
    for (const char* text :
         {"\xE9", "\xC0\x80", "\xE2\x82", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"})
        EXPECT_NE(characters(text).find("The text is not UTF-8 at octet 0x"), std::string::npos) << text;
    EXPECT_EQ(Refusal([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.Attribute("b", "\x1F");
              }),
              "XML cannot hold the character U+001F in element \"a\".");
}

TEST(Writer, RefusesNamesThatAreNone) {
    for (const char* name : {"", "1a", "a b", "a<", "-a", "a\xE9", "\xC3\x97"}) {
        EXPECT_NE(
            Refusal([name](UTF8Writer& writer) { writer.StartElement(name); }).find("no name of an element"),
            std::string::npos)
            << name;
        EXPECT_NE(Refusal([name](UTF8Writer& writer) {
                      writer.StartElement("a");
                      writer.Attribute(name, "");
                  }).find("no name of an attribute"),
                  std::string::npos)
            << name;
    }
    EXPECT_EQ(Written([](UTF8Writer& writer) {
                  writer.StartElement("_\xC3\xA9-1.x:y");
                  writer.EndElement("_\xC3\xA9-1.x:y");
              }),
              "<_\xC3\xA9-1.x:y/>");
}

TEST(Writer, RefusesEventsThatMakeNoDocument) {
    EXPECT_EQ(Refusal([](UTF8Writer& writer) { writer.EndElement("a"); }), "\"a\" ends without a start.");
    EXPECT_EQ(Refusal([](UTF8Writer& writer) { writer.Characters("a"); }),
              "Text stands outside of the root element.");
    EXPECT_EQ(Refusal([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.EndElement("b");
              }),
              "\"b\" ends where \"a\" is open.");
    EXPECT_EQ(Refusal([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.Characters("x");
                  writer.Attribute("b", "");
              }),
              "An attribute stands behind the start of its element in element \"a\".");
    EXPECT_EQ(Refusal([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.Attribute("b", "1");
                  writer.Attribute("b", "2");
              }),
              "The attribute \"b\" is there twice in element \"a\".");
    for (const char* text : {"a--b", "a-", "-"})
        EXPECT_EQ(Refusal([text](UTF8Writer& writer) { writer.Comment(text); }),
                  "A comment holds \"--\" or ends with \"-\".");
}

TEST(Writer, RefusesASecondRoot) {
    std::string document;
    const auto writer = ZLiteXML::CreateStringWriter(document);
    writer->StartElement("a");
    writer->EndElement("a");
    const std::string whole = document;
    EXPECT_THROW(writer->StartElement("b"), ZLiteXML::XMLException);
    EXPECT_EQ(document, whole);
}

class FileWriter : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zlitexml-test-XXXXXX";
        mFolder = mkdtemp(name);
    }
    void TearDown() override { fs::remove_all(mFolder); }

    static std::string ReadAll(const fs::path& file) {
        std::ifstream stream(file, std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    std::size_t Files() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(mFolder), {}));
    }
    static void WriteTo(const fs::path& file) {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
        writer->StartElement("a");
        writer->EndElement("a");
    }

    fs::path mFolder;
};

TEST_F(FileWriter, FileIsThereFromTheEndOfTheRootOn) {
    const fs::path file = mFolder / "new.xml";
    const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = false});
    writer->StartElement("a");
    writer->Characters(std::string(200000, 'x').c_str());
    EXPECT_EQ(Files(), 0u);
    writer->EndElement("a");
    EXPECT_EQ(ReadAll(file), "<a>" + std::string(200000, 'x') + "</a>");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, GivenUpDocumentLeavesTheOldOne) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        EXPECT_THROW(writer->Characters("\x01"), ZLiteXML::XMLException);
    }
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("unended");
    }
    EXPECT_EQ(ReadAll(file), "old");
    EXPECT_EQ(Files(), 1u);
}

/// While it lives, no file of this process grows beyond `size` bytes.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) : mHandler(std::signal(SIGXFSZ, SIG_IGN)) {
        getrlimit(RLIMIT_FSIZE, &mBefore);
        const rlimit limit{size, mBefore.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &mBefore);
        std::signal(SIGXFSZ, mHandler);
    }
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;

private:
    rlimit mBefore{};
    void (*mHandler)(int);
};

TEST_F(FileWriter, DocumentThatTheDiskCannotHoldLeavesTheOldOneAndNothingElse) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    const std::string text(200000, 'x');
    {
        const FileSizeLimit limit(1000);
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str());
        writer->StartElement("a");
        writer->Characters(text.c_str());
        EXPECT_THROW(writer->EndElement("a"), ZLiteXML::XMLException);
        EXPECT_THROW(writer->StartElement("a"), ZLiteXML::XMLException);
    }
    EXPECT_EQ(ReadAll(file), "old");
    EXPECT_EQ(Files(), 1u);
}

TEST_F(FileWriter, ReplacedFileKeepsItsPermissionsAndLinksStayLinks) {
    const fs::path file = mFolder / "old.xml";
    std::ofstream(file) << "old";
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    fs::create_symlink("old.xml", mFolder / "link.xml");
    WriteTo(mFolder / "link.xml");
    EXPECT_TRUE(fs::is_symlink(mFolder / "link.xml"));
    EXPECT_EQ(ReadAll(file), "<a/>");
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(Files(), 2u);
}

TEST_F(FileWriter, DevicesAreWrittenToDirectly) {
    WriteTo("/dev/null");
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_THROW(WriteTo("/dev/full"), ZLiteXML::XMLException);
}

TEST_F(FileWriter, FileThatCannotBeWrittenIsNamed) {
    for (const fs::path& file : {mFolder / "no" / "such" / "folder.xml", mFolder}) {
        try {
            WriteTo(file);
            ADD_FAILURE() << file;
        } catch (const ZLiteXML::XMLException& failure) {
            EXPECT_NE(std::string(ZBase::FormatMessage(failure, 0).c_str()).find(file.string() + ": "),
                      std::string::npos);
        }
    }
}

TEST_F(FileWriter, IndependentReaderAcceptsTheDocument) {
    const fs::path file = mFolder / "all.xml";
    {
        const auto writer = ZLiteXML::CreateFileWriter(file.c_str(), {.declaration = true, .indentation = 3});
        writer->Comment("in front");
        writer->StartElement("a");
        writer->Attribute("b", "<&>\"'\t\n\r\xF0\x9F\x98\x80");
        writer->Attribute("c", "");
        writer->StartElement("d");
        writer->Characters("]]>\x7F\xC2\x85\xEF\xBF\xBD");
        writer->EndElement("d");
        writer->EndElement("a");
    }
    const test::ChildResult child = test::RunChild({"/usr/bin/xmllint", "--noout", "--nonet", file});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    const test::ChildResult value = test::RunChild({"/usr/bin/xmllint", "--xpath", "string(/a/@b)", file});
    EXPECT_EQ(value.output, "<&>\"'\t\n\r\xF0\x9F\x98\x80\n");
}

}  // namespace
