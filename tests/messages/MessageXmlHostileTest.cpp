#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"
#include "tests/support/PeakMemory.h"
#include "tests/support/XmlDocuments.h"

// Documents made to harm the reader: each ends in an error or in a message with the document's content, the
// message stays well-formed, and time and memory stay in proportion to the bytes. Each takes moments; a
// quadratic cost would take hours.

namespace {

using ZBase::Message;

constexpr int kMany = 300000;

std::string Repeated(const std::string& text, int count) {
    std::string all;
    all.reserve(text.size() * static_cast<std::size_t>(count));
    for (int number = 0; number < count; ++number) all += text;
    return all;
}

std::string StartTag(const std::string& name) {
    return std::string("<").append(name).append(">");
}
std::string EndTag(const std::string& name) {
    return std::string("</").append(name).append(">");
}

// Reads a document into a message that is not empty. True when it was accepted, false when it was refused.
bool Read(const std::string& document, Message& message, std::size_t piece = 65536) {
    message.SetTemplate("old");
    message.WrapBy(300, 1, "old");
    bool taken = true;
    try {
        test::FromXML(document, message, piece);
    } catch (const Message&) {
        taken = false;
    }
    return taken;
}

bool Read(const std::string& document) {
    Message message;
    const bool taken = Read(document, message);
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
    return taken;
}

std::size_t PeakAbove(std::size_t before) {
#if defined(__SANITIZE_ADDRESS__)
    return before * 0;  // the sanitizer keeps freed memory
#else
    return test::PeakMemory() - before;
#endif
}

constexpr std::size_t kMostForLevels = 16 << 20;  // bytes

TEST(MessageXmlHostile, BillionLaughsAreRefused) {
    std::string document = "<!DOCTYPE m [<!ENTITY a0 'ha'>";
    for (int number = 1; number < 30; ++number) {
        const std::string before = "&a" + std::to_string(number - 1) + ";";
        document += "<!ENTITY a" + std::to_string(number) + " '" + Repeated(before, 10) + "'>";
    }
    EXPECT_FALSE(Read(document + "]><m><template>&a29;</template></m>"));
    EXPECT_FALSE(Read("<!DOCTYPE m [<!ENTITY % p '<!ENTITY a \"b\">'>%p;]><m><template>&a;</template></m>"));
}

TEST(MessageXmlHostile, ExternalEntitiesAreRefused) {
    EXPECT_FALSE(
        Read("<!DOCTYPE m [<!ENTITY a SYSTEM 'file:///etc/passwd'>]><m><template>&a;</template></m>"));
    EXPECT_FALSE(Read("<!DOCTYPE m [<!ENTITY % a SYSTEM 'file:///etc/passwd'>%a;]><m/>"));
    EXPECT_FALSE(Read("<!DOCTYPE m SYSTEM 'file:///etc/passwd'><m><template>&a;</template></m>"));
}

TEST(MessageXmlHostile, DefaultsOfAttributesAreRefused) {
    std::string document = "<!DOCTYPE m [<!ATTLIST text ";
    for (int number = 0; number < 10000; ++number)
        document.append("a").append(std::to_string(number)).append(" CDATA 'x' ");
    EXPECT_FALSE(Read(document + ">]><m>" + Repeated("<text/>", 10000) + "</m>"));
}

TEST(MessageXmlHostile, MillionLevelsAreRefusedWithinLittleMemory) {
    for (const char* name : {"a", "lower_level_message", "same_level_message", "text", "parameter"}) {
        const std::string document = "<m>" + Repeated(StartTag(name), 1000000);
        const std::size_t before = test::PeakMemoryFromNowOn();
        EXPECT_FALSE(Read(document)) << name;
        EXPECT_LT(PeakAbove(before), kMostForLevels) << name;
    }
}

TEST(MessageXmlHostile, MillionLevelsAreReadWithinMemoryInProportionWhereTheyAreAllowed) {
    for (const std::string name : {"a", "lower_level_message", "text"}) {
        const std::string document =
            "<m>" + Repeated(StartTag(name), 1000000) + Repeated(EndTag(name), 1000000) + "</m>";
        const std::size_t before = test::PeakMemoryFromNowOn();
        Message message;
        test::FromXML(document, message, 65536, {.depth = 1000000});
        EXPECT_LT(PeakAbove(before), 500 * 1000000u) << name;
    }
}

TEST(MessageXmlHostile, MillionAttributesAreReadWithinMemoryInProportion) {
    std::string document = "<m><text";
    for (int number = 0; number < 1000000; ++number) document += " a" + std::to_string(number) + "=\"\"";
    document += ">t</text></m>";
    const std::size_t before = test::PeakMemoryFromNowOn();
    EXPECT_TRUE(Read(document));
    EXPECT_LT(PeakAbove(before), 30 * document.size());
}

TEST(MessageXmlHostile, MillionsOfFieldsTakeLinearTime) {
    const std::string parameters = Repeated("<parameter>p</parameter>", kMany);
    const std::string ids = Repeated("<id>1</id><domain>Server</domain>", kMany);
    const std::string templates = Repeated("<template>t</template>", kMany);
    std::string texts;
    for (int number = 0; number < kMany; ++number)
        texts += "<text language_id=\"" + std::string(ZBase::ToHexUpperString(number & 0xFFFF).c_str()) +
                 "\">t</text>";
    const std::string fields = parameters + ids + templates + texts;
    for (const bool nested : {false, true}) {
        Message message;
        ASSERT_TRUE(Read(nested ? "<m><lower_level_message>" + fields + "</lower_level_message></m>"
                                : "<m>" + fields + "</m>",
                         message));
        const Message* at = nested ? message.GetLowerLevelMessageOrNULL() : &message;
        EXPECT_NE(at->GetParameter(kMany - 1), nullptr);
        EXPECT_EQ(at->GetParameter(kMany), nullptr);
        EXPECT_STREQ(at->GetLocalizedText(0xFFFF), "t");
    }
}

// Gaps in many blocks, all of which are too small for the next record.
TEST(MessageXmlHostile, SearchForRoomTakesLinearTime) {
    std::string document = "<m>" + Repeated("<parameter>" + std::string(44, 'p') + "</parameter>", kMany);
    for (int number = 0; number < 0x10000; ++number)
        document += "<text language_id=\"" + std::string(ZBase::ToHexUpperString(number).c_str()) + "\">" +
                    std::string(41, 't') + "</text>";
    EXPECT_TRUE(Read(document + "</m>"));
}

// Each level adds a field after its nested message, which is large.
TEST(MessageXmlHostile, LargeContentUnderManyLevelsIsNotCopiedForEach) {
    for (const char* field : {"<id>1</id>", "<template>t</template><template>longer</template>", ""}) {
        const std::string document = "<m>" + Repeated("<lower_level_message><template>t</template>", 9000) +
                                     "<template>" + std::string(20 << 20, 'x') + "</template>" +
                                     Repeated(field + std::string("</lower_level_message>"), 9000) + "</m>";
        Message message;
        EXPECT_TRUE(Read(document, message)) << field;
    }
}

// A long text with many elements inside is not stored many times.
TEST(MessageXmlHostile, LongTextWithinManyElementsIsNotStoredForEach) {
    const std::string text(10 << 20, 'x');
    for (const std::string name : {"text", "parameter"}) {
        const std::string document = "<m>" + Repeated("<a>", 4000) + StartTag(name) + Repeated("<b>", 4000) +
                                     text + Repeated("x</b>", 4000) + EndTag(name) + Repeated("</a>", 4000) +
                                     "</m>";
        Message message;
        EXPECT_TRUE(Read(document, message));
        EXPECT_LT(test::CountBlocks(&message), 10u) << name;
    }
}

TEST(MessageXmlHostile, TruncatedAtEveryByteIsRefused) {
    Message source;
    test::FillAtRandom(source, 5);
    std::string document = test::ToXML(source);
    document.resize(std::min<std::size_t>(document.size(), 6000));
    for (std::size_t length = 0; length < document.size(); ++length) {
        Message message;
        EXPECT_FALSE(Read(document.substr(0, length), message, 1024)) << length;
        ASSERT_EQ(test::FindFlaw(&message), nullptr) << length;
    }
}

TEST(MessageXmlHostile, ChangedAtEveryByteIsAnErrorOrAMessage) {
    Message source(300, 1, "t\xC3\xA9");
    source << "p";
    source.SetLocalizedText(1033, "text");
    source.WrapBy(300, 2, "w").PrependBy(10, 3, "f");
    const std::string document = test::ToXML(source);
    for (std::size_t at = 0; at < document.size(); ++at) {
        for (const char change : {'<', '>', '&', '/', '"', ' ', '\0', '\xFF', 'a'}) {
            std::string changed = document;
            changed[at] = change;
            Read(changed);
        }
    }
}

std::string ToUtf16(const std::u16string& text, bool bigEndian, bool mark) {
    std::string wide;
    for (const char16_t unit : (mark ? u"\uFEFF" : u"") + text) {
        const char low = static_cast<char>(unit & 0xFF);
        const char high = static_cast<char>(unit >> 8);
        wide += bigEndian ? high : low;
        wide += bigEndian ? low : high;
    }
    return wide;
}

TEST(MessageXmlHostile, Utf16IsReadWithAndWithoutMarkAndNothingLessThanTheWhole) {
    const std::u16string document =
        u"<?xml version=\"1.0\"?><m><id>7</id><template>\u00E9\u4E2D\U0001F600</template></m>";
    for (const bool bigEndian : {false, true}) {
        for (const bool mark : {false, true}) {
            const std::string wide = ToUtf16(document, bigEndian, mark);
            Message message;
            EXPECT_TRUE(Read(wide, message));
            EXPECT_EQ(message.GetID(), 7);
            EXPECT_STREQ(message.GetTemplate(), "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
            EXPECT_FALSE(Read(wide + "x"));
            for (std::size_t length = 0; length < wide.size(); ++length) {
                Message part;
                EXPECT_FALSE(Read(wide.substr(0, length), part, 7)) << bigEndian << mark << length;
                ASSERT_EQ(test::FindFlaw(&part), nullptr) << length;
            }
        }
    }
}

TEST(MessageXmlHostile, WrongEncodingsAreRefused) {
    EXPECT_FALSE(Read("<?xml version=\"1.0\" encoding=\"UTF-8\"?><m><template>\xE9</template></m>"));
    EXPECT_FALSE(Read("<?xml version=\"1.0\" encoding=\"UTF-16\"?><m/>"));
    EXPECT_FALSE(Read(ToUtf16(u"<?xml version=\"1.0\" encoding=\"UTF-8\"?><m/>", false, true)));
    EXPECT_FALSE(Read("<?xml version=\"1.0\" encoding=\"EBCDIC-CP-US\"?><m/>"));
    EXPECT_FALSE(Read("<m><template>\xF4\x90\x80\x80</template></m>"));
}

TEST(MessageXmlHostile, MemoryStaysInProportionToTheDocument) {
    const std::string pieces[] = {"<parameter/>",
                                  "<parameter>12345678901234567890</parameter>",
                                  "<lower_level_message/>",
                                  "<text language_id='9'>x</text>",
                                  "<x/>",
                                  "<!-- x -->",
                                  "text",
                                  "&amp;"};
    for (const std::string& piece : pieces) {
        for (const bool nested : {false, true}) {
            std::string document = nested ? "<m><lower_level_message>" : "<m>";
            document += Repeated(piece, static_cast<int>((4u << 20) / piece.size()));
            document += nested ? "</lower_level_message></m>" : "</m>";
            const std::size_t before = test::PeakMemoryFromNowOn();
            Message message;
            ASSERT_TRUE(Read(document, message));
            EXPECT_LT(PeakAbove(before), 5 * document.size()) << piece << nested;
        }
    }
}

}  // namespace
