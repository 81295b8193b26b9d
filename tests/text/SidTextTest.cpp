#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase::Literals;
using Octets = std::vector<unsigned char>;
using ZBase::WideString;

Octets Parse(const WideString& text) {
    unsigned char* sid = nullptr;
    std::uint64_t size = 77;
    EXPECT_TRUE(ZBase::SidWStringToBinary(text, sid, size));
    const std::unique_ptr<unsigned char[]> owner(sid);
    return Octets(sid, sid + size);
}

Octets Parse(const std::string& text) {
    return Parse(WideString(text.begin(), text.end()));
}

std::u16string Print(const Octets& sid) {
    return test::Wide(ZBase::SidBinaryToWString(sid.data(), sid.size()).c_str());
}

// `octets` and zeros up to the size of a record of `count` sub-authorities.
Octets Record(Octets octets, unsigned char count) {
    octets[1] = count;
    octets.resize(8 + 4u * count);
    return octets;
}

TEST(SidText, WellKnownRecordIsPrinted) {
    EXPECT_EQ(Print({1, 1, 0, 0, 0, 0, 0, 5, 0x12, 0, 0, 0}), u"S-1-5-18");
    EXPECT_EQ(Print({1, 2, 0, 0, 0, 0, 0, 5, 32, 0, 0, 0, 0x20, 2, 0, 0}), u"S-1-5-32-544");
}

TEST(SidText, LargestNumbersAreDecimal) {
    EXPECT_EQ(Print({255, 1, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255}),
              u"S-255-281474976710655-4294967295");
}

TEST(SidText, LongestRecordIsPrinted) {
    const Octets sid(8 + 4 * 255, 0xFF);
    std::u16string expected = u"S-255-281474976710655";
    for (int i = 0; i != 255; ++i) expected += u"-4294967295";
    EXPECT_EQ(Print(sid), expected);
}

TEST(SidText, NullEmptyAndRecordsWithoutSubAuthoritiesHaveNone) {
    const unsigned char sid[] = {1, 0, 0, 0, 0, 0, 0, 5};
    EXPECT_EQ(ZBase::SidBinaryToWString(nullptr, 12).c_str(), nullptr);
    EXPECT_EQ(ZBase::SidBinaryToWString(sid, 0).c_str(), nullptr);
    EXPECT_EQ(ZBase::SidBinaryToWString(sid, sizeof sid).c_str(), nullptr);
}

TEST(SidText, SizeIsNotLookedAt) {
    const unsigned char sid[] = {1, 1, 0, 0, 0, 0, 0, 5, 18, 0, 0, 0};
    EXPECT_EQ(test::Wide(ZBase::SidBinaryToWString(sid, 1).c_str()), u"S-1-5-18");
    EXPECT_EQ(test::Wide(ZBase::SidBinaryToWString(sid, UINT64_MAX).c_str()), u"S-1-5-18");
}

TEST(SidTextParser, ReadsAWellKnownText) {
    EXPECT_EQ(Parse("S-1-5-18"), (Octets{1, 1, 0, 0, 0, 0, 0, 5, 0x12, 0, 0, 0}));
}

TEST(SidTextParser, RandomRecordsGoThereAndBack) {
    std::mt19937 random(1);
    for (int i = 0; i != 3000; ++i) {
        const auto count = static_cast<unsigned char>(1 + random() % 255);
        Octets sid(8 + 4u * count);
        for (unsigned char& octet : sid) octet = static_cast<unsigned char>(random());
        sid[1] = count;
        const ZBase::ReturnWString text = ZBase::SidBinaryToWString(sid.data(), sid.size());
        ASSERT_EQ(Parse(WideString(text.c_str())), sid);
    }
}

TEST(SidTextParser, RefusesTheEmptyTextOnly) {
    auto* sid = reinterpret_cast<unsigned char*>(1);
    std::uint64_t size = 77;
    EXPECT_FALSE(ZBase::SidWStringToBinary(WideString(), sid, size));
    EXPECT_EQ(sid, nullptr);
    EXPECT_EQ(size, 0u);
}

TEST(SidTextParser, CountIsTheDashesLessTwoIn8Bits) {
    EXPECT_EQ(Parse("S-1-5"), (Octets{1, 0, 0, 0, 0, 0, 0, 5}));
    EXPECT_EQ(Parse("abc"), Record(Octets(8), 254));
    EXPECT_EQ(Parse("S-7"), Record({7, 0, 0, 0, 0, 0, 0, 0}, 255));
    EXPECT_EQ(Parse("--"), Octets(8));
    EXPECT_EQ(Parse("---"), Record(Octets(8), 1));
}

TEST(SidTextParser, SubAuthoritiesBeyondTheCountAreNotStored) {
    std::string text = "S-1-5";
    for (int i = 0; i != 255; ++i) text += "-9";
    Octets expected = Record({1, 0, 0, 0, 0, 0, 0, 5}, 255);
    for (std::size_t i = 8; i < expected.size(); i += 4) expected[i] = 9;
    EXPECT_EQ(Parse(text), expected);
    EXPECT_EQ(Parse(text + "-9"), (Octets{1, 0, 0, 0, 0, 0, 0, 5}));
    EXPECT_EQ(Parse(text + "-9-9"), (Octets{1, 1, 0, 0, 0, 0, 0, 5, 9, 0, 0, 0}));
}

TEST(SidTextParser, TextBeforeTheFirstDashIsNotLookedAt) {
    EXPECT_EQ(Parse("42 elephants-1-5-18"), Parse("S-1-5-18"));
    EXPECT_EQ(Parse("-1-5-18"), Parse("S-1-5-18"));
    EXPECT_EQ(Parse("42"), Record(Octets(8), 254));
}

TEST(SidTextParser, FieldsThatAreNoNumbersAreZero) {
    EXPECT_EQ(Parse("S-x-y-z"), Record(Octets(8), 1));
    EXPECT_EQ(Parse("S---5"), Record({0, 0, 0, 0, 0, 0, 0, 0, 5}, 1));
    EXPECT_EQ(Parse("S-+-+ 1-0x10"), Record(Octets(8), 1));
}

TEST(SidTextParser, FieldsAreReadLikeScanf) {
    EXPECT_EQ(Parse("S- \t\n\v\f\r1-+5-18xyz"), Parse("S-1-5-18"));
    EXPECT_EQ(Parse("S-0001-05-018"), Parse("S-1-5-18"));
}

TEST(SidTextParser, NumbersAreCutToTheirFields) {
    // 70000 = 0x11170; 2^48 + 6; 2^32 + 3
    EXPECT_EQ(Parse("S-70000-281474976710662-4294967299"), (Octets{0x70, 1, 0, 0, 0, 0, 0, 6, 3, 0, 0, 0}));
    // the largest number of 64 bits, and one beyond, which stays the largest
    for (const std::string number :
         {"18446744073709551615", "18446744073709551616", "99999999999999999999999"}) {
        EXPECT_EQ(Parse("S-" + number + "-" + number + "-" + number),
                  (Octets{255, 1, 255, 255, 255, 255, 255, 255, 255, 255, 255, 255}));
    }
}

TEST(SidTextParser, EmbeddedZeroEndsAFieldOnly) {
    const unsigned short text[] = {'S', '-', '1', 0, '9', '-', '5', '-', '1', '8'};
    EXPECT_EQ(Parse(WideString(text, 10)), Parse("S-1-5-18"));
}

TEST(SidTextParser, ExhaustedMemoryThrowsAndLeaksNothing) {
    const WideString text("S-1-5-18"_w);
    const std::size_t live = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([&text] {
        unsigned char* sid = nullptr;
        std::uint64_t size = 0;
        try {
            ZBase::SidWStringToBinary(text, sid, size);
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(sid, nullptr);
        }
        delete[] sid;
    });
    EXPECT_EQ(failures, 1u);
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
