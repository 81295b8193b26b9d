#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/MessageBytes.h"
#include "tests/support/MessageTrees.h"
#include "tests/support/SlowUnicode.h"
#include "tests/support/XmlDocuments.h"

namespace {

using test::DescribeTree;
using test::FromXML;
using test::ToXML;
using ZBase::Message;

TEST(MessageXmlRoundTrip, RandomTreesComeBackEqual) {
    for (unsigned int seed = 0; seed < 300; ++seed) {
        Message message;
        test::FillAtRandom(message, seed);
        Message back;
        FromXML(ToXML(message), back, 1 + seed * 7 % 5000);
        ASSERT_EQ(DescribeTree(back), DescribeTree(message)) << seed;
        ASSERT_EQ(test::FindFlaw(&back), nullptr) << seed;
        Message fromIndented;
        FromXML(ToXML(message, {.indentation = 3}), fromIndented);
        ASSERT_EQ(DescribeTree(fromIndented), DescribeTree(message)) << seed;
        ASSERT_EQ(ToXML(back), ToXML(fromIndented));
    }
}

std::string AsTheyAre(const std::string& octets) {
    return octets;
}

// Invalid UTF-8 becomes U+FFFD as in every conversion, and so do characters that XML cannot hold.
std::string Replaced(const std::string& octets) {
    test::Units units = test::SlowUtf8ToWide(octets, true).text;
    for (unsigned short& unit : units) {
        const bool isHeld = unit >= 0x20 || unit == '\t' || unit == '\n' || unit == '\r';
        if (!isHeld) unit = 0xFFFD;
    }
    return test::SlowWideToUtf8(units, true).text;
}

TEST(MessageXmlRoundTrip, RecordsOfAnyOctetsComeBackWithWhatXmlCannotHoldReplaced) {
    for (unsigned int seed = 0; seed < 300; ++seed) {
        Message message;
        Message expected;
        test::FillWithOctets(message, seed, AsTheyAre);
        test::FillWithOctets(expected, seed, Replaced);
        Message back;
        FromXML(ToXML(message, {.indentation = seed % 3, .replace = true}), back, 1 + seed * 7 % 5000);
        ASSERT_EQ(DescribeTree(back), DescribeTree(expected)) << seed;
    }
}

// Asymmetries of the format

TEST(MessageXmlRoundTrip, DomainsWithANameSurviveAndOthersBecomeUnknown) {
    for (unsigned int domain = 0; domain <= 0xFFFF; domain += domain < 400 ? 1 : 331) {
        const auto number = static_cast<unsigned short>(domain);
        Message back;
        FromXML(ToXML(Message(number, -7, nullptr)), back);
        const bool survives = domain == 10 || (domain >= 11 && domain <= 15) || domain == 100 ||
                              domain == 101 || domain == 200 || (domain >= 210 && domain <= 213) ||
                              domain == 300;
        EXPECT_EQ(back.GetDomain(), survives ? domain : 0);
        EXPECT_EQ(back.GetID(), -7);
    }
}

TEST(MessageXmlRoundTrip, AppleSignalBecomesUnknownWithItsId) {
    Message back;
    FromXML(ToXML(Message(214, 9, nullptr)), back);
    EXPECT_EQ(back.GetDomain(), 0);
    EXPECT_EQ(back.GetID(), 9);
}

TEST(MessageXmlRoundTrip, IdsAreExact) {
    for (const int id : {0, 1, -1, 2147483647, -2147483647 - 1}) {
        Message back;
        FromXML(ToXML(Message(300, id, nullptr)), back);
        EXPECT_EQ(back.GetID(), id);
    }
}

TEST(MessageXmlRoundTrip, EveryLanguageIsExact) {
    for (unsigned int upper = 0; upper <= 0xFF; ++upper) {
        Message message;
        for (unsigned int lower = 0; lower <= 0xFF; ++lower) {
            const unsigned int language = upper << 8 | lower;
            message.SetLocalizedText(static_cast<unsigned short>(language), std::to_string(language).c_str());
        }
        Message back;
        FromXML(ToXML(message), back);
        ASSERT_EQ(DescribeTree(back), DescribeTree(message)) << upper;
    }
}

TEST(MessageXmlRoundTrip, NumberFormatIsTheDefaultAgain) {
    Message message(300, 1, nullptr);
    message << Message::Hex << 10;
    Message back;
    FromXML(ToXML(message), back);
    back << 10;
    EXPECT_STREQ(back.GetParameter(0), "0xA");
    EXPECT_STREQ(back.GetParameter(1), "10");
}

TEST(MessageXmlRoundTrip, WideTextIsMadeAgainOnDemand) {
    Message message(300, 1, "template");
    message.GetMessage();
    message.SetTemplate("changed!");
    Message back;
    FromXML(ToXML(message), back);
    EXPECT_EQ(test::Layout(&back).find("#15"), std::string::npos);
    EXPECT_EQ(ZBase::WideCharToUTF8(back.GetMessage(), false).c_str(),
              std::string("changed! (Server message 1)"));
}

TEST(MessageXmlRoundTrip, MessageWithoutHeaderStaysWithoutOne) {
    Message message;
    message << "p";
    Message back;
    FromXML(ToXML(message), back);
    EXPECT_EQ(test::Layout(&back), "100-77: 7#3");
}

// A chain of each shape, at the reader's limit and one beyond.
TEST(MessageXmlRoundTrip, TenThousandMessagesInARowOrInEachOther) {
    for (const bool below : {false, true}) {
        for (const int count : {10000, 10001}) {
            std::string document = "<message><id>0</id>";
            const std::string name = below ? "lower_level_message" : "same_level_message";
            for (int number = 1; number < count; ++number)
                document += "<" + name + "><id>" + std::to_string(number) + "</id>";
            for (int number = 1; number < count; ++number) document += "</" + name + ">";
            document += "</message>";
            Message message;
            if (count > 10000) {
                EXPECT_THROW(FromXML(document, message), Message);
                EXPECT_EQ(test::Layout(&message), "100-71: 13#1");
                continue;
            }
            FromXML(document, message);
            const Message* at = &message;
            for (int number = 0; number < count; ++number) {
                ASSERT_NE(at, nullptr);
                ASSERT_EQ(at->GetID(), number);
                at = below ? at->GetLowerLevelMessageOrNULL() : at->GetSameLevelMessageOrNULL();
            }
            EXPECT_EQ(at, nullptr);
            Message back;
            FromXML(ToXML(message, {.indentation = 1}), back);
            EXPECT_EQ(DescribeTree(back), DescribeTree(message));
        }
    }
}

// Deeper than the 16 bits in which a cursor counts its steps.
TEST(MessageXmlRoundTrip, SeventyThousandLevelsAreReadAndWritten) {
    constexpr int count = 70000;
    std::string document = "<message>";
    for (int number = 1; number < count; ++number)
        document += number % 2 == 0 ? "<lower_level_message>" : "<same_level_message>";
    document += "<id>7</id>";
    for (int number = count - 1; number > 0; --number)
        document += number % 2 == 0 ? "</lower_level_message>" : "</same_level_message>";
    document += "</message>";
    Message message;
    FromXML(document, message, 65536, {.depth = count});
    std::string written = test::ToElement(message);
    written.erase(written.find("<domain>"), std::string("<domain>Unknown</domain>").size());
    EXPECT_TRUE(written == document);
}

}  // namespace
