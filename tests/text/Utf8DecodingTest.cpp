#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

std::string FailureOf(const char* octets) {
    return test::ConversionFailure([octets] { ZBase::UTF8ToWideChar(octets, false); });
}

Units Replaced(const char* octets) {
    return test::Text(ZBase::UTF8ToWideChar(octets, true));
}

Units Strict(const char* octets) {
    return test::Text(ZBase::UTF8ToWideChar(octets, false));
}

const Units kReplacement = {0xFFFD};

TEST(Utf8Decoding, ByteOrderMarkIsOneCharacterOfWideText) {
    EXPECT_EQ(Units(ZBase::UNICODE_BYTE_ORDER_MARK), Units{0xFEFF});
    EXPECT_EQ(ZBase::UNICODE_BYTE_ORDER_MARK[1], 0);
    EXPECT_EQ(Strict("\xEF\xBB\xBF"), Units{0xFEFF});
}

TEST(Utf8Decoding, NullGivesANullString) {
    EXPECT_EQ(ZBase::UTF8ToWideChar(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(ZBase::UTF8ToWideChar(nullptr, true).c_str(), nullptr);
}

TEST(Utf8Decoding, EmptyTextGivesAnEmptyTextThatIsNotNull) {
    ASSERT_NE(ZBase::UTF8ToWideChar("", false).c_str(), nullptr);
    EXPECT_EQ(Strict(""), Units{});
}

TEST(Utf8Decoding, SequencesOfEachLengthDecode) {
    EXPECT_EQ(Strict("A\x7F"), (Units{0x41, 0x7F}));
    EXPECT_EQ(Strict("\xC2\x80\xDF\xBF"), (Units{0x80, 0x7FF}));
    EXPECT_EQ(Strict("\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD"),
              (Units{0x800, 0xD7FF, 0xE000, 0xFFFD}));
    EXPECT_EQ(Strict("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"), (Units{0xD800, 0xDC00, 0xDBFF, 0xDFFF}));
}

TEST(Utf8Decoding, OverlongZeroIsRefusedByName) {
    EXPECT_EQ(FailureOf("\xC0\x80"), "ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+0000.");
    EXPECT_EQ(Replaced("\xC0\x80"), kReplacement);
}

TEST(Utf8Decoding, LargestOverlongFormOfEachLengthIsRefused) {
    const std::string start = "ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+";
    EXPECT_EQ(FailureOf("\xC1\xBF"), start + "007F.");
    EXPECT_EQ(FailureOf("\xE0\x9F\xBF"), start + "07FF.");
    EXPECT_EQ(FailureOf("\xF0\x8F\xBF\xBF"), start + "FFFF.");
    EXPECT_EQ(FailureOf("\xF8\x87\xBF\xBF\xBF"), start + "1FFFFF.");
    EXPECT_EQ(FailureOf("\xFC\x83\xBF\xBF\xBF\xBF"), start + "3FFFFFF.");
}

TEST(Utf8Decoding, OverlongFormOfTheReplacementCharacterIsAccepted) {
    EXPECT_EQ(Strict("\xF0\x8F\xBF\xBD"), kReplacement);
    EXPECT_EQ(Strict("\xF8\x80\x8F\xBF\xBD"), kReplacement);
    EXPECT_EQ(Strict("\xFC\x80\x80\x8F\xBF\xBD"), kReplacement);
    EXPECT_NE(FailureOf("\xF0\x8F\xBF\xBC"), "");
    EXPECT_NE(FailureOf("\xF0\x8F\xBF\xBE"), "");
}

TEST(Utf8Decoding, SurrogateValueIsRefusedByName) {
    EXPECT_EQ(FailureOf("\xED\xA0\x80"), "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+D800.");
    EXPECT_EQ(FailureOf("\xED\xBF\xBF"), "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+DFFF.");
    EXPECT_EQ(Replaced("\xED\xA0\x80"), kReplacement);
    EXPECT_EQ(Replaced("\xED\xA0\xBD\xED\xB8\x80"), (Units{0xFFFD, 0xFFFD}));
}

TEST(Utf8Decoding, NoncharactersAtTheEndOfTheFirstPlaneAreRefusedByName) {
    EXPECT_EQ(FailureOf("\xEF\xBF\xBE"), "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+FFFE.");
    EXPECT_EQ(FailureOf("\xEF\xBF\xBF"), "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+FFFF.");
    EXPECT_EQ(Replaced("\xEF\xBF\xBE\xEF\xBF\xBF"), (Units{0xFFFD, 0xFFFD}));
}

TEST(Utf8Decoding, ValueAboveTheLastPlaneIsRefusedWithAllItsDigits) {
    const std::string start = "ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+";
    EXPECT_EQ(FailureOf("\xF4\x90\x80\x80"), start + "110000.");
    EXPECT_EQ(FailureOf("\xF7\xBF\xBF\xBF"), start + "1FFFFF.");
    EXPECT_EQ(FailureOf("\xF8\x88\x80\x80\x80"), start + "200000.");
    EXPECT_EQ(FailureOf("\xFC\x84\x80\x80\x80\x80"), start + "4000000.");
    EXPECT_EQ(FailureOf("\xFD\xBF\xBF\xBF\xBF\xBF"), start + "7FFFFFFF.");
}

TEST(Utf8Decoding, FiveAndSixOctetsAreConsumedWhole) {
    EXPECT_EQ(Replaced("\xF8\x88\x80\x80\x80"), kReplacement);
    EXPECT_EQ(Replaced("\xFD\xBF\xBF\xBF\xBF\xBF"
                       "A"),
              (Units{0xFFFD, 'A'}));
}

TEST(Utf8Decoding, OctetThatLeadsNothingIsRefusedByName) {
    EXPECT_EQ(FailureOf("\x80"), "ZBase::UTF8ToWideChar: Invalid octet 0x80.");
    EXPECT_EQ(FailureOf("\xBF"), "ZBase::UTF8ToWideChar: Invalid octet 0xBF.");
    EXPECT_EQ(FailureOf("A\xFE"), "ZBase::UTF8ToWideChar: Invalid octet 0xFE.");
    EXPECT_EQ(FailureOf("\xC3\xA4\xFF"), "ZBase::UTF8ToWideChar: Invalid octet 0xFF.");
    EXPECT_EQ(Replaced("\x80\xFE"
                       "A\xFF"),
              (Units{0xFFFD, 0xFFFD, 'A', 0xFFFD}));
}

TEST(Utf8Decoding, OctetThatBreaksASequenceOffIsDecodedAgain) {
    EXPECT_EQ(Replaced("\xE2\x82\x41"), (Units{0xFFFD, 'A'}));
    EXPECT_EQ(Replaced("\xE2\xC3\xA4"), (Units{0xFFFD, 0xE4}));
    EXPECT_EQ(Replaced("\xF0\x9F\x98\xFF"), (Units{0xFFFD, 0xFFFD}));
    EXPECT_EQ(FailureOf("\xE2\x82\x41"), "ZBase::UTF8ToWideChar: Invalid continuation octet 0x41.");
    EXPECT_EQ(FailureOf("\xE2\xC3\xA4"), "ZBase::UTF8ToWideChar: Invalid continuation octet 0xC3.");
    EXPECT_EQ(FailureOf("\xC3\x09"), "ZBase::UTF8ToWideChar: Invalid continuation octet 0x09.");
}

TEST(Utf8Decoding, FragmentAtTheEndIsOneFlaw) {
    const std::string text = "ZBase::UTF8ToWideChar: Expect more continuation octet data.";
    for (const char* fragment :
         {"\xC3", "\xE2\x82", "\xF0\x9F\x98", "\xF8\x88\x80\x80", "\xFC\x84\x80\x80\x80"}) {
        EXPECT_EQ(FailureOf(fragment), text);
        EXPECT_EQ(Replaced(fragment), kReplacement);
    }
}

TEST(Utf8Decoding, FailureCarriesItsTextWideAndNarrow) {
    try {
        ZBase::UTF8ToWideChar("\xC0\x80", false);
        FAIL();
    } catch (const ZBase::StringConversionException& failure) {
        const std::string text = "ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+0000.";
        EXPECT_EQ(Units(failure.GetMessage()), ToUnits(text));
        EXPECT_EQ(failure.GetLocalizedText(0), text);
    }
}

TEST(Utf8DecodingIntoABuffer, ZeroOctetIsACharacterLikeAnother) {
    const std::string octets("A\0B", 3);
    std::vector<unsigned short> units(4, 0xAAAA);
    EXPECT_TRUE(
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(octets.data()), units.data(), 3, false));
    EXPECT_EQ(units, (std::vector<unsigned short>{'A', 0, 'B', 0}));
    EXPECT_EQ(Strict(octets.c_str()), Units{'A'});
}

TEST(Utf8DecodingIntoABuffer, NullSourceIsTrueAndNothingIsWritten) {
    unsigned short units[2] = {0xAAAA, 0xAAAA};
    EXPECT_TRUE(ZBase::UTF8ToWideChar(nullptr, units, 5, false));
    EXPECT_EQ(units[0], 0xAAAA);
    EXPECT_TRUE(ZBase::UTF8ToWideChar(nullptr, nullptr, 5, false));
}

TEST(Utf8DecodingIntoABuffer, NullDestinationIsFalse) {
    const unsigned char octets[] = "A";
    EXPECT_FALSE(ZBase::UTF8ToWideChar(octets, nullptr, 1, false));
    EXPECT_FALSE(ZBase::UTF8ToWideChar(octets, nullptr, 0, true));
}

TEST(Utf8DecodingIntoABuffer, NoOctetsGiveOnlyTheTerminator) {
    const unsigned char octets[] = "A";
    unsigned short units[2] = {0xAAAA, 0xAAAA};
    EXPECT_TRUE(ZBase::UTF8ToWideChar(octets, units, 0, false));
    EXPECT_EQ(units[0], 0);
    EXPECT_EQ(units[1], 0xAAAA);
}

TEST(Utf8DecodingIntoABuffer, FailureLeavesWhatWasWrittenAndNothingMore) {
    const std::string octets =
        "0123456789\xC3\xA4\xFF"
        "abcdefghijklm";
    std::vector<unsigned short> units(octets.size() + 1, 0xAAAA);
    const auto* source = reinterpret_cast<const unsigned char*>(octets.data());
    EXPECT_EQ(
        test::ConversionFailure([&] { ZBase::UTF8ToWideChar(source, units.data(), octets.size(), false); }),
        "ZBase::UTF8ToWideChar: Invalid octet 0xFF.");
    Units expected = ToUnits("0123456789");
    expected += 0xE4;
    expected.resize(units.size(), 0xAAAA);
    EXPECT_EQ(Units(units.begin(), units.end()), expected);
}

// Lengths around the blocks that are copied at once, with source and destination at the end of a page.
TEST(Utf8DecodingIntoABuffer, NothingBeyondTheSourceOrTheDestinationIsTouched) {
    for (std::size_t length = 0; length != 70; ++length) {
        for (const std::string& tail :
             {std::string(), std::string("\xC3"), std::string("\xE2\x82"), std::string("\xF0\x9F\x98")}) {
            const std::string octets = std::string(length, 'a') + tail;
            const test::GuardedArray<char> source(octets);
            const test::GuardedArray<unsigned short> destination(Units(octets.size() + 1, 0xAAAA));
            ASSERT_TRUE(ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(source.Get()),
                                              destination.Get(), octets.size(), true));
            Units expected(length, 'a');
            if (!tail.empty()) expected += 0xFFFD;
            ASSERT_EQ(Units(destination.Get()), expected);
        }
    }
}

TEST(Utf8DecodingOctets, EveryOctetCountsAsALeadingByte) {
    for (int octet = 0; octet != 256; ++octet) {
        EXPECT_TRUE(ZBase::UTF8IsLeadingByte(static_cast<char>(octet))) << octet;
    }
}

TEST(Utf8DecodingOctets, LengthOfTheSequenceFollowsFromTheLead) {
    const struct {
        int first, last;
        unsigned int octets;
    } rows[] = {{0x00, 0x7F, 1}, {0xC0, 0xDF, 2}, {0xE0, 0xEF, 3},
                {0xF0, 0xF7, 4}, {0xF8, 0xFB, 5}, {0xFC, 0xFD, 6}};
    for (const auto& row : rows) {
        for (int octet = row.first; octet <= row.last; ++octet) {
            EXPECT_EQ(ZBase::UTF8TotalBytes(static_cast<char>(octet)), row.octets) << octet;
        }
    }
}

TEST(Utf8DecodingOctets, OctetThatLeadsNothingIsNamedWidenedWithItsSign) {
    const auto failure = [](int octet) {
        return test::ConversionFailure([octet] { ZBase::UTF8TotalBytes(static_cast<char>(octet)); });
    };
    EXPECT_EQ(failure(0x80), "Invalid octet 0xFFFFFF80.");
    EXPECT_EQ(failure(0xBF), "Invalid octet 0xFFFFFFBF.");
    EXPECT_EQ(failure(0xFE), "Invalid octet 0xFFFFFFFE.");
    EXPECT_EQ(failure(0xFF), "Invalid octet 0xFFFFFFFF.");
    for (int octet = 0x80; octet != 0xC0; ++octet) EXPECT_NE(failure(octet), "");
}

}  // namespace
