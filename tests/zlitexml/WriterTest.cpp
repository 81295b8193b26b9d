#include <ZLiteXML/UTF8Reader.h>
#include <ZLiteXML/UTF8Writer.h>
#include <ZLiteXML/XMLException.h>

#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using ZLiteXML::UTF8Writer;

using Events = std::function<void(UTF8Writer&)>;

std::string Written(const Events& events, const ZLiteXML::WriterOptions& options = {.declaration = false}) {
    std::string document;
    events(*ZLiteXML::CreateStringWriter(document, options));
    return document;
}

// The writer's failure for events that it refuses, without any output.
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

TEST(Writer, TakesCommentsBehindTheRoot) {
    EXPECT_EQ(Written([](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.EndElement("a");
                  writer.Comment("b");
                  writer.Comment("c");
              }),
              "<a/><!--b--><!--c-->");
    std::string document;
    const auto writer = ZLiteXML::CreateStringWriter(document);
    writer->StartElement("a");
    writer->EndElement("a");
    writer->Comment("b");
    const std::string whole = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<a/>\n<!--b-->\n";
    EXPECT_EQ(document, whole);
    EXPECT_THROW(writer->Comment("c\x01"), ZLiteXML::XMLException);
    EXPECT_EQ(document, whole);
}

// A reader turns it into a line feed.
TEST(Writer, RefusesACarriageReturnInAComment) {
    EXPECT_EQ(Refusal([](UTF8Writer& writer) { writer.Comment("a\rb"); }),
              "A comment cannot hold the character U+000D.");
}

TEST(Writer, ReplacesWhatXmlCannotHoldWhenItIsToldTo) {
    EXPECT_EQ(Written(
                  [](UTF8Writer& writer) {
                      writer.Comment("--a--b\r\x02-");
                      writer.StartElement("a");
                      writer.Attribute("b", "1\x1F\xE9z\n");
                      writer.Characters(
                          "\x1B[1m<\xEF\xBF\xBE>\xE2\x82|\xC0\x80|\xED\xA0\x80|\xF8\x88\x80\x80\x80|"
                          "\xE2\x82\xAC\x80\x80");
                      writer.EndElement("a");
                  },
                  {.declaration = false, .replace = true}),
              "<!--\uFFFD-a\uFFFD-b\uFFFD\uFFFD\uFFFD--><a b=\"1\uFFFD\uFFFDz&#10;\">"
              "\uFFFD[1m&lt;\uFFFD&gt;\uFFFD|\uFFFD|\uFFFD|\uFFFD|\u20AC\uFFFD\uFFFD</a>");
    EXPECT_THROW(Written([](UTF8Writer& writer) { writer.StartElement("\xE9"); }, {.replace = true}),
                 ZLiteXML::XMLException);
}

std::string ToUtf8(unsigned int value) {
    if (value < 0x80) return {static_cast<char>(value)};
    std::string text;
    const int further = value < 0x800 ? 1 : value < 0x10000 ? 2 : 3;
    const unsigned int marks[] = {0xC0, 0xE0, 0xF0};
    text += static_cast<char>(marks[further - 1] | value >> 6 * further);
    for (int left = further - 1; left >= 0; --left)
        text += static_cast<char>(0x80 | (value >> 6 * left & 0x3F));
    return text;
}

bool Reads(const std::string& document) {
    try {
        const auto reader = ZLiteXML::CreateReader();
        reader->Read(document.data(), document.size());
        reader->Finish();
    } catch (const ZLiteXML::XMLException&) {
        return false;
    }
    return true;
}

TEST(Writer, TakesTheNamesThatTheReaderTakes) {
    for (unsigned int value = 1; value < 0x110000; value += value < 0x10000 ? 1 : 4099) {
        if (value == ' ' || value == '/' || value == '\t' || value == '\n' || value == '\r') continue;
        for (const std::string& name : {ToUtf8(value), "a" + ToUtf8(value)}) {
            bool writes = true;
            try {
                Written([&](UTF8Writer& writer) { writer.StartElement(name.c_str()); });
            } catch (const ZLiteXML::XMLException&) {
                writes = false;
            }
            ASSERT_EQ(writes, Reads("<" + name + "/>")) << value;
        }
    }
}

TEST(Writer, TellsWhichOfManyAttributesIsThereTwice) {
    const Events many = [](UTF8Writer& writer) {
        writer.StartElement("a");
        for (int number = 0; number < 200000; ++number)
            writer.Attribute(("b" + std::to_string(number)).c_str(), "");
        writer.Attribute("b199999", "");
    };
    EXPECT_EQ(Refusal(many), "The attribute \"b199999\" is there twice in element \"a\".");
}

TEST(Writer, ManyReplacementsTakeLinearTime) {
    const std::string hyphens(4 << 20, '-');
    const std::string octets(4 << 20, '\xE9');
    const std::string document = Written(
        [&](UTF8Writer& writer) {
            writer.Comment(hyphens.c_str());
            writer.StartElement("a");
            writer.Characters(octets.c_str());
            writer.EndElement("a");
        },
        {.declaration = false, .replace = true});
    EXPECT_EQ(document.size(), 2 * (3u << 22) + std::string("<!----><a></a>").size());
}

TEST(Writer, OneLongTextTakesNoMoreThanItself) {
    const std::string text(1 << 20, 'x');
    EXPECT_EQ(Written([&](UTF8Writer& writer) {
                  writer.StartElement("a");
                  writer.Characters((text + "<" + text).c_str());
                  writer.EndElement("a");
              }),
              "<a>" + text + "&lt;" + text + "</a>");
}

}  // namespace
