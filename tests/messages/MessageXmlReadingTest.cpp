#include <Base/ZBase.h>
#include <ZLiteXML/XMLException.h>

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"
#include "tests/support/XmlDocuments.h"

namespace {

using test::DescribeTree;
using test::FromXML;
using test::ToElement;
using ZBase::Message;

// The content of a document as text.
std::string Read(const std::string& document) {
    Message message;
    FromXML(document, message);
    EXPECT_EQ(test::FindFlaw(&message), nullptr);
    return DescribeTree(message);
}

// The same for a message of these fields.
std::string Expected(const Message& message) {
    return DescribeTree(message);
}

TEST(MessageXmlReading, EmptyRootIsAnEmptyMessage) {
    Message message(300, 1, "old");
    FromXML("<message/>", message);
    EXPECT_TRUE(message.IsEmpty());
}

TEST(MessageXmlReading, FieldsArrive) {
    Message message;
    FromXML(
        "<message><domain>Windows API</domain><id>-5</id><template>%1 of %2</template>"
        "<parameter>one</parameter><parameter/><parameter>three</parameter>"
        "<text language_id=\"409\">English</text><text language_id=\"0\">any</text></message>",
        message);
    EXPECT_EQ(message.GetDomain(), 100);
    EXPECT_EQ(message.GetID(), -5);
    EXPECT_STREQ(message.GetTemplate(), "%1 of %2");
    EXPECT_STREQ(message.GetParameter(0), "one");
    EXPECT_STREQ(message.GetParameter(1), "");
    EXPECT_STREQ(message.GetParameter(2), "three");
    EXPECT_EQ(message.GetParameter(3), nullptr);
    EXPECT_STREQ(message.GetLocalizedText(1033), "English");
    EXPECT_STREQ(message.GetLocalizedText(0), "any");
}

TEST(MessageXmlReading, RootMayHaveAnyNameAndAttributes) {
    EXPECT_EQ(Read("<anything language_id=\"x\" id=\"9\"><id>7</id></anything>"),
              Expected(Message(0, 7, nullptr)));
    EXPECT_EQ(Read("<domain><id>7</id></domain>"), Expected(Message(0, 7, nullptr)));
}

TEST(MessageXmlReading, IdMayComeBeforeTheDomain) {
    const std::string expected = Expected(Message(300, 42, nullptr));
    EXPECT_EQ(Read("<m><id>42</id><domain>Server</domain></m>"), expected);
    EXPECT_EQ(Read("<m><domain>Server</domain><id>42</id></m>"), expected);
}

TEST(MessageXmlReading, DomainsAreNamesInAnyCaseAndOtherwiseZero) {
    EXPECT_EQ(Read("<m><domain>sERVER</domain></m>"), Expected(Message(300, 0, nullptr)));
    for (const char* name : {"APPLE Signal", " Server", "Server ", "300", "", "Serve"})
        EXPECT_EQ(Read("<m><domain>" + std::string(name) + "</domain><id>5</id></m>"),
                  Expected(Message(0, 5, nullptr)))
            << name;
}

TEST(MessageXmlReading, IdsAreWhatTheyBeginWith) {
    const std::vector<std::pair<const char*, int>> ids = {{"12x", 12},
                                                          {" \n 12", 12},
                                                          {"x", 0},
                                                          {"", 0},
                                                          {"99999999999", 2147483647},
                                                          {"-99999999999", -2147483647 - 1}};
    for (const auto& [text, id] : ids)
        EXPECT_EQ(Read("<m><id>" + std::string(text) + "</id></m>"), Expected(Message(0, id, nullptr)))
            << text;
}

TEST(MessageXmlReading, LanguagesAreHexadecimalAndCutTo16Bits) {
    const std::vector<std::pair<const char*, unsigned short>> languages = {
        {"409", 0x409}, {"ffff", 0xFFFF}, {"0x0407", 0x407}, {"12345", 0x2345}, {" 9", 9}, {"-1F", 0xFFE1}};
    for (const auto& [text, language] : languages) {
        Message expected;
        expected.SetLocalizedText(language, "x");
        EXPECT_EQ(Read("<m><text language_id=\"" + std::string(text) + "\">x</text></m>"),
                  Expected(expected));
    }
    Message expected;
    expected.SetLocalizedText(0, "x");
    EXPECT_EQ(Read("<m><text>x</text></m>"), Expected(expected));
    EXPECT_EQ(Read("<m><text language=\"409\">x</text></m>"), Expected(expected));
}

TEST(MessageXmlReading, LanguageThatIsNotHexadecimalIsRefused) {
    for (const char* language : {"", "en", "409 ", "4 09", "0x", "FFFFFFFF", "100000000"}) {
        Message message;
        EXPECT_THROW(
            FromXML("<m><id>3</id><text language_id=\"" + std::string(language) + "\">x</text></m>", message),
            ZBase::StringConversionException)
            << language;
        EXPECT_EQ(DescribeTree(message), Expected(Message(0, 3, nullptr)));
    }
}

TEST(MessageXmlReading, UnknownElementsArePassedOver) {
    Message expected(300, 1, "t");
    expected << "p";
    EXPECT_EQ(Read("<m>junk<domain>Server</domain>junk<unknown language_id=\"zz\">5</unknown><id>1</id>junk"
                   "<Template>no</Template><templat>no</templat><templates>no</templates>"
                   "<template>t</template><messages/><parameter>p</parameter><x><y>1</y>2</x>junk</m>"),
              Expected(expected));
}

TEST(MessageXmlReading, TextOfAnUnknownElementDoesNotLeakIntoTheNext) {
    EXPECT_EQ(Read("<m><unknown>12</unknown><id>3</id></m>"), Expected(Message(0, 3, nullptr)));
    EXPECT_EQ(Read("<m>12<id>3</id>45</m>"), Expected(Message(0, 3, nullptr)));
}

TEST(MessageXmlReading, KnownElementWithinAnUnknownOneCountsOnce) {
    Message expected;
    expected << "p";
    EXPECT_EQ(Read("<m><x><y><parameter>p</parameter></y></x></m>"), Expected(expected));
    expected.Clear();
    expected.SetTemplate("lower");
    expected.WrapBy(0, 1, nullptr);
    EXPECT_EQ(
        Read("<m><id>1</id><x><lower_level_message><template>lower</template></lower_level_message></x></m>"),
        Expected(expected));
}

TEST(MessageXmlReading, ElementWithinAKnownOneTakesItsPlace) {
    EXPECT_EQ(Read("<m><id>5<b>6</b>7</id></m>"), Expected(Message()));
}

TEST(MessageXmlReading, ElementWithinATextBeginsItAnew) {
    Message expected;
    expected.SetLocalizedText(0, "defghi");
    EXPECT_EQ(Read("<m><text language_id=\"409\">abc<b>def</b>ghi</text></m>"), Expected(expected));
    expected.Clear();
    expected.SetLocalizedText(5, "x");
    expected.SetLocalizedText(6, "yz");
    EXPECT_EQ(Read("<m><text><b language_id=\"5\">x</b><c language_id=\"6\">y</c>z</text></m>"),
              Expected(expected));
}

TEST(MessageXmlReading, TextBetweenTwoElementsOfATextBelongsToNeither) {
    Message expected;
    expected.SetLocalizedText(5, "x");
    expected.SetLocalizedText(6, "y");
    EXPECT_EQ(Read("<m><text><b language_id=\"5\">x</b>w<c language_id=\"6\">y</c></text></m>"),
              Expected(expected));
}

TEST(MessageXmlReading, LaterFieldsReplaceEarlierOnes) {
    Message expected(300, 2, "a longer template");
    expected.SetLocalizedText(9, "b");
    EXPECT_EQ(
        Read("<m><id>1</id><domain>Windows API</domain><template>t</template><text language_id=\"9\">a</text>"
             "<id>2</id><domain>Server</domain><template>a longer template</template>"
             "<text language_id=\"9\">b</text></m>"),
        Expected(expected));
    expected.WrapBy(0, 8, nullptr);
    EXPECT_EQ(Read("<m><id>8</id><lower_level_message><id>1</id><template>t</template><text "
                   "language_id=\"9\">a</text>"
                   "<id>2</id><domain>Server</domain><template>a longer template</template>"
                   "<text language_id=\"9\">b</text></lower_level_message></m>"),
              Expected(expected));
}

TEST(MessageXmlReading, MoreLanguagesThanFewKeepTheirTexts) {
    std::string document = "<m><lower_level_message>";
    Message expected;
    for (int round = 0; round < 2; ++round) {
        for (int language = 1; language <= 20; ++language) {
            const std::string text(static_cast<std::size_t>(round * language), 'x');
            document += "<text language_id=\"" + std::string(ZBase::ToHexUpperString(language).c_str()) +
                        "\">" + text + "</text>";
            expected.SetLocalizedText(static_cast<unsigned short>(language), text.c_str());
        }
    }
    expected.WrapBy(0, 1, nullptr);
    EXPECT_EQ(Read(document + "</lower_level_message><id>1</id></m>"), Expected(expected));
    EXPECT_EQ(Read(ToElement(expected)), Expected(expected));
}

TEST(MessageXmlReading, CharacterDataCanComeInAnyPieces) {
    Message expected;
    expected << "a<b&c\xE2\x82\xAC]]>";
    const std::string document =
        "<m><parameter>a&lt;b&#38;c&#x20AC;<![CDATA[]]]]><!-- - -->&gt;</parameter></m>";
    for (std::size_t piece = 1; piece < document.size(); ++piece) {
        Message message;
        FromXML(document, message, piece);
        EXPECT_EQ(DescribeTree(message), Expected(expected)) << piece;
    }
}

TEST(MessageXmlReading, OldContentIsGoneAtOnce) {
    Message message(300, 1, "old");
    message.WrapBy(300, 2, "outer").PrependBy(300, 3, "first");
    const auto reader = ZLiteXML::CreateReader();
    const auto handler = ZBase::GetSerializerFromXML(message, *reader);
    EXPECT_TRUE(message.IsEmpty());
}

TEST(MessageXmlReading, TargetThatHeldNestedMessagesStartsAnew) {
    Message message(300, 1,
                    "an old text that is long enough to lie in a heap block of its own, not in the object");
    message.WrapBy(300, 2,
                   "another old text that is long enough to lie in a heap block of its own, as that one");
    message.PrependBy(300, 3, "third");
    FromXML("<m><lower_level_message><id>1</id></lower_level_message><same_level_message/></m>", message);
    Message expected;
    ZBase::MessageCursor cursor(expected);
    cursor.GoToLowerLevelMessage(true);
    cursor.GetCurrentMessage().SetDomainAndID(0, 1);
    cursor.GoToParent();
    cursor.GoToSameLevelMessage(true);
    cursor.GoToParent();
    EXPECT_EQ(DescribeTree(message), Expected(expected));
}

TEST(MessageXmlReading, TargetInSuppliedMemoryIsFilled) {
    for (const unsigned int size : {16u, 17u, 64u, 100u, 4096u}) {
        std::vector<unsigned char> memory(size);
        Message::PlacementPtr message(memory.data(), size);
        Message source(300, 1, "source");
        source.WrapBy(300, 2, "wrapper").PrependBy(300, 3, "first") << "p";
        FromXML(ToElement(source), *message);
        EXPECT_EQ(DescribeTree(*message), Expected(source)) << size;
        EXPECT_EQ(test::FindFlaw(message.Get()), nullptr);
    }
}

// The root is filled as `Message` fills itself.
TEST(MessageXmlReading, FieldsOfTheRootLieWhereTheMessageItselfPutsThem) {
    for (const int count : {3, 60, 3000}) {
        Message expected;
        std::string document = "<m>";
        for (int number = 0; number < count; ++number) {
            const std::string text(static_cast<std::size_t>(number % 40), 'p');
            expected << text.c_str();
            document += "<parameter>" + text + "</parameter>";
            if (number % 3 == 0) {
                const int language = number % 7;
                expected.SetLocalizedText(static_cast<unsigned short>(language), text.c_str());
                document += "<text language_id=\"" + std::to_string(language) + "\">" + text + "</text>";
            }
            if (number % 5 == 0) {
                expected.SetTemplate(text.c_str());
                expected.SetDomainAndID(0, number);
                document += "<template>" + text + "</template><id>" + std::to_string(number) + "</id>";
            }
        }
        Message message;
        FromXML(document + "</m>", message);
        EXPECT_EQ(DescribeTree(message), Expected(expected));
        EXPECT_EQ(test::FindFlaw(&message), nullptr);
        // In a long chain gaps are no longer searched.
        if (count < 100) {
            EXPECT_EQ(test::Layout(&message), test::Layout(&expected)) << count;
        }
    }
}

TEST(MessageXmlReading, NestedMessagesArePackedToMeasure) {
    Message message;
    FromXML(
        "<m><id>1</id><lower_level_message><parameter>ab</parameter><lower_level_message/"
        "><same_level_message>"
        "<id>2</id></same_level_message></lower_level_message></m>",
        message);
    // 16 and a parameter of 8, an empty message of 21, and a message with a header in 21 + 13.
    EXPECT_EQ(test::Layout(&message), "100-71: 13#1 | 100-0: 84#5");
    EXPECT_EQ(test::Layout(message.GetLowerLevelMessageOrNULL()), "79-0: 8#3 21#5 34#4");
    EXPECT_EQ(test::Layout(message.GetLowerLevelMessageOrNULL()->GetSameLevelMessageOrNULL()), "29-0: 13#1");
}

TEST(MessageXmlReading, EmptyNestedElementIsAnEmptyMessage) {
    Message message;
    FromXML("<m><lower_level_message/></m>", message);
    ASSERT_NE(message.GetLowerLevelMessageOrNULL(), nullptr);
    EXPECT_TRUE(message.GetLowerLevelMessageOrNULL()->IsEmpty());
    EXPECT_FALSE(message.IsEmpty());
}

// Messages of the root that had ended when the stream ends are there; open ones are not.
TEST(MessageXmlReading, StreamThatStopsEarlyKeepsWhatHadBeenClosed) {
    const std::string document =
        "<message><id>1</id><lower_level_message><id>2</id><lower_level_message><id>3</id></"
        "lower_level_message>"
        "</lower_level_message><same_level_message><id>4</id></same_level_message></message>";
    const std::string afterID = Expected(Message(0, 1, nullptr));
    Message withLower(0, 3, nullptr);
    withLower.WrapBy(0, 2, nullptr).WrapBy(0, 1, nullptr);
    Message whole;
    FromXML(document, whole);
    const std::size_t idEnd = document.find("</id>") + 5;
    const std::size_t lowerEnd = document.rfind("</lower_level_message>") + 22;
    const std::size_t sameEnd = document.find("</same_level_message>") + 21;
    for (std::size_t length = 0; length < document.size(); ++length) {
        Message message;
        {
            const auto reader = ZLiteXML::CreateReader();
            reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
            reader->Read(document.data(), length);
        }
        EXPECT_EQ(test::FindFlaw(&message), nullptr);
        EXPECT_EQ(DescribeTree(message), length < idEnd      ? Expected(Message())
                                         : length < lowerEnd ? afterID
                                         : length < sameEnd  ? Expected(withLower)
                                                             : Expected(whole))
            << length;
    }
}

// Each field is there after the end of its element, and not before.
TEST(MessageXmlReading, StreamThatStopsWithinAnElementKeepsTheFieldsBeforeIt) {
    Message expected;
    std::string before = "<m>";
    const auto stopWithin = [&](const std::string& element) {
        for (const std::string nested : {"", "<lower_level_message>"}) {
            for (std::size_t length = 0; length < element.size(); ++length) {
                Message message;
                {
                    const auto reader = ZLiteXML::CreateReader();
                    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
                    const std::string document = before + nested + element.substr(0, length);
                    reader->Read(document.data(), document.size());
                }
                EXPECT_EQ(test::FindFlaw(&message), nullptr);
                EXPECT_EQ(DescribeTree(message), Expected(expected)) << element.substr(0, length);
            }
        }
        before += element;
    };
    stopWithin("<domain>Server</domain>");
    expected.SetDomainAndID(300, 0);
    stopWithin("<id>12345</id>");
    expected.SetDomainAndID(300, 12345);
    stopWithin("<unknown language_id='4'>x</unknown>");
    stopWithin("<template>t %1</template>");
    expected.SetTemplate("t %1");
    stopWithin("<parameter>one</parameter>");
    expected << "one";
    stopWithin("<text language_id='409'>text</text>");
    expected.SetLocalizedText(0x409, "text");
    stopWithin("<parameter>two</parameter>");
    expected << "two";
    stopWithin("<same_level_message></same_level_message>");
}

// The text that an element within it ends is stored, although the outer one never ends.
TEST(MessageXmlReading, StreamThatStopsWithinATextKeepsTheOneThatEndedInIt) {
    const std::vector<std::pair<std::string, std::string>> steps = {{"<text language_id='409'>abc", ""},
                                                                    {"<b language_id='5'>de", ""},
                                                                    {"f</b>", "def"},
                                                                    {"gh<!-- -->", "def"},
                                                                    {"<c language_id='5'>x", "def"},
                                                                    {"</c>", "x"},
                                                                    {"y", "x"},
                                                                    {"</text>", "xy"}};
    std::string document = "<m>";
    for (const auto& [step, text] : steps) {
        document += step;
        Message message;
        {
            const auto reader = ZLiteXML::CreateReader();
            reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
            reader->Read(document.data(), document.size());
        }
        Message expected;
        if (!text.empty()) expected.SetLocalizedText(5, text.c_str());
        EXPECT_EQ(DescribeTree(message), Expected(expected)) << document;
    }
}

// Ends within one text store its growth, wherever its record has moved to.
TEST(MessageXmlReading, EachEndWithinATextAddsWhatItHasGrown) {
    for (const std::string nested : {"", "<lower_level_message><id>1</id>"}) {
        std::string document = "<m>" + nested + "<text>";
        for (int level = 0; level < 300; ++level) document += "<b>";
        std::string text;
        const auto reader = ZLiteXML::CreateReader();
        Message message;
        reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
        reader->Read(document.data(), document.size());
        for (int level = 0; level < 300; ++level) {
            const std::string more(static_cast<std::size_t>(level % 7), static_cast<char>('a' + level % 26));
            text += more;
            const std::string end = more + "</b>";
            reader->Read(end.data(), end.size());
            if (!nested.empty()) continue;
            ASSERT_STREQ(message.GetLocalizedText(0), text.c_str()) << level;
        }
        const std::string end = std::string("end</text>") + (nested.empty() ? "" : "</lower_level_message>");
        reader->Read(end.data(), end.size());
        const Message* at = nested.empty() ? &message : message.GetLowerLevelMessageOrNULL();
        ASSERT_NE(at, nullptr);
        EXPECT_STREQ(at->GetLocalizedText(0), (text + "end").c_str());
        EXPECT_EQ(test::FindFlaw(&message), nullptr);
    }
}

// The reader delays what follows a long comment in small pieces; `Finish` delivers it.
TEST(MessageXmlReading, StreamThatStopsBehindALongCommentKeepsAllOnceItIsFinished) {
    const std::string document = "<m><!--" + std::string(5000, 'x') + "--><id>7</id>";
    Message message;
    const auto reader = ZLiteXML::CreateReader();
    reader->PushHandler(ZBase::GetSerializerFromXML(message, *reader).Get());
    for (const char octet : document) reader->Read(&octet, 1);
    EXPECT_THROW(reader->Finish(), ZLiteXML::XMLException);
    EXPECT_EQ(message.GetID(), 7);
}

TEST(MessageXmlReading, HandlerMayReadASecondDocument) {
    Message message;
    const auto first = ZLiteXML::CreateReader();
    const auto handler = ZBase::GetSerializerFromXML(message, *first);
    handler->StartElement("m");
    message.Clear();
    handler->StartElement("m");
    EXPECT_TRUE(message.IsEmpty());
}

TEST(MessageXmlReading, ParameterThatFindsNoMemoryIsEmptyAndKeepsItsNumber) {
    const std::string text(200, 'p');
    const std::string document = "<m><parameter>" + text + "</parameter><parameter>second</parameter></m>";
    int lost = 0;
    test::ForEachFailingAllocation([&] {
        Message message;
        try {
            FromXML(document, message);
        } catch (const std::bad_alloc&) {
            return;
        }
        const bool firstIsLost = *message.GetParameter(0) == 0;
        const bool secondIsLost = *message.GetParameter(1) == 0;
        lost += firstIsLost + secondIsLost;
        EXPECT_STREQ(message.GetParameter(0), firstIsLost ? "" : text.c_str());
        EXPECT_STREQ(message.GetParameter(1), secondIsLost ? "" : "second");
        EXPECT_EQ(message.GetParameter(2), nullptr);
    });
    EXPECT_EQ(lost, 2);
}

TEST(MessageXmlReading, OutOfMemoryLeavesTheMessageWellFormedAndNothingBehind) {
    Message source(300, 1,
                   "a template that needs a block of its own in the chain, as it is a long one, really");
    source << "p";
    source.SetLocalizedText(1033, "text");
    source.WrapBy(300, 2, "wrapper").PrependBy(300, 3, "first");
    const std::string document = ToElement(source);
    const std::string expected = DescribeTree(source);
    const std::size_t live = test::LiveBlocks();
    std::size_t failures = 0;
    {
        // The parser's own memory is not the library's: only `operator new` fails here.
        failures = test::ForEachFailingAllocation([&] {
            Message message;
            try {
                FromXML(document, message);
            } catch (const std::bad_alloc&) {
            }
            EXPECT_EQ(test::FindFlaw(&message), nullptr);
        });
    }
    EXPECT_GT(failures, 10u);
    EXPECT_EQ(test::LiveBlocks(), live);
    Message message;
    FromXML(document, message);
    EXPECT_EQ(DescribeTree(message), expected);
}

}  // namespace
