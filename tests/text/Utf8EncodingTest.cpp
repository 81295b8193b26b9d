#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

std::string Encoded(const Units& units, bool replace = false) {
    return test::Text(ZBase::WideCharToUTF8(units.c_str(), replace));
}

std::string FailureOf(const Units& units, bool replace) {
    return test::ConversionFailure([&] { ZBase::WideCharToUTF8(units.c_str(), replace); });
}

const std::string kInvalid = "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+";

TEST(Utf8Encoding, NullGivesANullString) {
    EXPECT_EQ(ZBase::WideCharToUTF8(nullptr, false).c_str(), nullptr);
    EXPECT_EQ(ZBase::WideCharToUTF8UsingLength(nullptr, 7, true).c_str(), nullptr);
}

TEST(Utf8Encoding, EmptyTextGivesAnEmptyTextThatIsNotNull) {
    ASSERT_NE(ZBase::WideCharToUTF8(Units().c_str(), false).c_str(), nullptr);
    EXPECT_EQ(Encoded({}), "");
}

TEST(Utf8Encoding, UnitsOfEachLengthEncode) {
    EXPECT_EQ(Encoded({0x01, 0x41, 0x7F}),
              "\x01"
              "A\x7F");
    EXPECT_EQ(Encoded({0x80, 0x7FF}), "\xC2\x80\xDF\xBF");
    EXPECT_EQ(Encoded({0x800, 0xD7FF, 0xE000, 0xFFFD}), "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD");
    EXPECT_EQ(Encoded({0xD800, 0xDC00, 0xDBFF, 0xDFFF}), "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF");
}

TEST(Utf8Encoding, SurrogatePairIsOneCharacter) {
    EXPECT_EQ(Encoded({0xD83D, 0xDE00}), "\xF0\x9F\x98\x80");
}

TEST(Utf8Encoding, AnyTwoSurrogatesAreTakenForAPair) {
    EXPECT_EQ(Encoded({0xDE00, 0xD83D}), "\xF2\x90\x80\xBD");  // 0x200 << 10, 0x10000, 0x3D
    EXPECT_EQ(Encoded({0xD800, 0xD800}), "\xF0\x90\x80\x80");
    EXPECT_EQ(Encoded({0xDFFF, 0xDFFF}), "\xF4\x8F\xBF\xBF");
}

TEST(Utf8Encoding, UnpairedSurrogateThrowsWhateverTheFlagSays) {
    for (const bool replace : {false, true}) {
        EXPECT_EQ(FailureOf({0xD83D}, replace), kInvalid + "D83D.");
        EXPECT_EQ(FailureOf({0xD83D, 0x41}, replace), kInvalid + "D83D.");
        EXPECT_EQ(FailureOf({0x41, 0xDC00}, replace), kInvalid + "DC00.");
        EXPECT_EQ(FailureOf({0xD83D, 0xDE00, 0xDE00}, replace), kInvalid + "DE00.");
        EXPECT_EQ(FailureOf({0xD83D, 0xE000, 0xD83D, 0xDE00}, replace), kInvalid + "D83D.");
    }
}

TEST(Utf8Encoding, NoncharactersAtTheEndOfTheFirstPlaneThrowOrAreReplaced) {
    EXPECT_EQ(FailureOf({0x41, 0xFFFE}, false), kInvalid + "FFFE.");
    EXPECT_EQ(FailureOf({0xFFFF}, false), kInvalid + "FFFF.");
    EXPECT_EQ(Encoded({0xFFFE}, true), "\xEF\xBF\xBD");
    EXPECT_EQ(Encoded({0x41, 0xFFFF, 0x42}, true),
              "A\xEF\xBF\xBD"
              "B");
}

TEST(Utf8Encoding, NoncharacterBehindASurrogateIsScreenedBeforeItIsFoundToBeNoPartner) {
    EXPECT_EQ(FailureOf({0xD83D, 0xFFFE}, false), kInvalid + "FFFE.");
    EXPECT_EQ(FailureOf({0xD83D, 0xFFFE}, true), kInvalid + "D83D.");
}

TEST(Utf8EncodingUsingLength, ZeroMeansTerminatedText) {
    const Units units = ToUnits("abc");
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF8UsingLength(units.c_str(), 0, false)), "abc");
}

TEST(Utf8EncodingUsingLength, EndsAtTheLengthOrAtAZero) {
    const Units units{'a', 'b', 'c', 0, 'd', 0};
    const auto encoded = [&units](unsigned int length) {
        return test::Text(ZBase::WideCharToUTF8UsingLength(units.c_str(), length, false));
    };
    EXPECT_EQ(encoded(1), "a");
    EXPECT_EQ(encoded(3), "abc");
    EXPECT_EQ(encoded(4), "abc");
    EXPECT_EQ(encoded(5), "abc");
    EXPECT_EQ(encoded(0xFFFFFFFF), "abc");
}

TEST(Utf8EncodingUsingLength, LengthMayCutAPair) {
    const Units units{'a', 0xD83D, 0xDE00};
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::WideCharToUTF8UsingLength(units.c_str(), 2, true); }),
              kInvalid + "D83D.");
    EXPECT_EQ(test::Text(ZBase::WideCharToUTF8UsingLength(units.c_str(), 3, true)), "a\xF0\x9F\x98\x80");
}

TEST(Utf8EncodingUsingLength, ReadsNoUnitBeyondTheLength) {
    for (unsigned int length = 1; length != 70; ++length) {
        const test::GuardedArray<unsigned short> plain(Units(length, 'a'));
        ASSERT_EQ(test::Text(ZBase::WideCharToUTF8UsingLength(plain.Get(), length, false)),
                  std::string(length, 'a'));
        Units terminated(length, 'a');
        terminated.back() = 0;
        const test::GuardedArray<unsigned short> ended(terminated);
        ASSERT_EQ(test::Text(ZBase::WideCharToUTF8UsingLength(ended.Get(), 1000, false)),
                  std::string(length - 1, 'a'));
    }
}

TEST(Utf8EncodingUsingLength, SurrogateAtTheLengthIsNotPairedWithWhatFollows) {
    const test::GuardedArray<unsigned short> units(Units{'a', 0xD83D});
    EXPECT_EQ(test::ConversionFailure([&] { ZBase::WideCharToUTF8UsingLength(units.Get(), 2, true); }),
              kInvalid + "D83D.");
}

TEST(Utf8Encoding, LargeTextsSurvive) {
    const Units units = Units(3000000, 0x20AC) + Units(5, 'x');
    const std::string octets = Encoded(units);
    ASSERT_EQ(octets.size(), 9000005u);
    EXPECT_EQ(octets.substr(8999997), "\xE2\x82\xACxxxxx");
    EXPECT_EQ(test::Text(ZBase::UTF8ToWideChar(octets.c_str(), false)), units);
}

}  // namespace
