#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <type_traits>
#include <unordered_set>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase::Literals;
using test::Wide;
using ZBase::_GUID;
using ZBase::GUID;

const _GUID kExample{0x00112233, 0x4455, 0x6677, {0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF}};
constexpr char kLibrary[] = "0011223366774455BBAA9988FFEEDDCC";
constexpr char kPlain[] = "00112233-4455-6677-8899-AABBCCDDEEFF";
constexpr char kBraces[] = "{00112233-4455-6677-8899-AABBCCDDEEFF}";

using Parser = bool (*)(_GUID&, const unsigned short*);

std::string Narrow(const ZBase::ReturnWString& text) {
    return ZBase::WideCharToASCII(text.c_str(), false).c_str();
}

bool Parse(Parser parser, _GUID& guid, const std::string& text) {
    std::memset(&guid, 0xEE, sizeof guid);
    return parser(guid, test::ToUnits(text).c_str());
}

bool IsSame(const _GUID& left, const _GUID& right) {
    return std::memcmp(&left, &right, sizeof left) == 0;
}

bool IsZero(const _GUID& guid) {
    return IsSame(guid, _GUID{});
}

std::string Lower(std::string text) {
    for (char& c : text) c = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

TEST(Guid, RecordIsThePlatforms) {
    static_assert(sizeof(_GUID) == 16 && offsetof(_GUID, Data2) == 4 && offsetof(_GUID, Data3) == 6 &&
                  offsetof(_GUID, Data4) == 8);
    static_assert(sizeof(GUID) == 16 && std::is_base_of_v<_GUID, GUID> && !std::is_polymorphic_v<GUID>);
    static_assert(std::is_convertible_v<GUID&, const _GUID&> && std::is_trivially_copyable_v<GUID>);
    const unsigned char memory[] = {0x33, 0x22, 0x11, 0x00, 0x55, 0x44, 0x77, 0x66,
                                    0x88, 0x99, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0xFF};
    EXPECT_EQ(std::memcmp(&kExample, memory, sizeof memory), 0);
}

TEST(Guid, TextFormsDifferInMoreThanPunctuation) {
    EXPECT_EQ(Narrow(ZBase::Guid2String(kExample)), kLibrary);
    EXPECT_EQ(Narrow(ZBase::Guid2MSString(kExample)), kBraces);
    EXPECT_EQ(Narrow(ZBase::Guid2MSUniString(kExample)), kPlain);
    EXPECT_EQ(Narrow(GUID(kExample).ToWString()), kLibrary);
    EXPECT_EQ(Narrow(GUID(kExample).ToMicrosoftWString()), kBraces);
}

TEST(Guid, EachParserReadsItsFormsInEitherCase) {
    for (const auto& [parser, text] : {std::pair<Parser, const char*>(ZBase::String2Guid, kLibrary),
                                       {ZBase::String2Guid, kPlain},
                                       {ZBase::MSString2Guid, kBraces}}) {
        _GUID guid;
        EXPECT_TRUE(Parse(parser, guid, text));
        EXPECT_TRUE(IsSame(guid, kExample)) << text;
        EXPECT_TRUE(Parse(parser, guid, Lower(text)));
        EXPECT_TRUE(IsSame(guid, kExample)) << text;
    }
}

TEST(Guid, ParserRefusesTheFormsOfTheOther) {
    _GUID guid;
    EXPECT_FALSE(Parse(ZBase::String2Guid, guid, kBraces));
    EXPECT_TRUE(IsZero(guid));
    EXPECT_FALSE(Parse(ZBase::MSString2Guid, guid, kPlain));
    EXPECT_TRUE(IsZero(guid));
    EXPECT_FALSE(Parse(ZBase::MSString2Guid, guid, kLibrary));
    EXPECT_TRUE(IsZero(guid));
}

TEST(Guid, NullTextIsRefused) {
    _GUID guid = kExample;
    EXPECT_FALSE(ZBase::String2Guid(guid, nullptr));
    EXPECT_TRUE(IsZero(guid));
    guid = kExample;
    EXPECT_FALSE(ZBase::MSString2Guid(guid, nullptr));
    EXPECT_TRUE(IsZero(guid));
}

TEST(Guid, EveryOtherLengthIsRefused) {
    for (std::size_t length = 0; length != 80; ++length) {
        _GUID guid;
        const std::string digits(length, '1');
        EXPECT_EQ(Parse(ZBase::String2Guid, guid, digits), length == 32) << length;
        EXPECT_FALSE(Parse(ZBase::MSString2Guid, guid, digits));
        EXPECT_TRUE(IsZero(guid));
    }
    _GUID guid;
    EXPECT_FALSE(Parse(ZBase::String2Guid, guid, std::string(1000000, '1')));
}

// At each position of each form in turn each unit that is invalid there.
TEST(Guid, EverySingleCorruptionOfEveryFormIsRefused) {
    const auto isDigit = [](unsigned int unit) {
        return (unit >= '0' && unit <= '9') || (unit >= 'A' && unit <= 'F') || (unit >= 'a' && unit <= 'f');
    };
    for (const auto& [parser, form] : {std::pair<Parser, std::string>(ZBase::String2Guid, kLibrary),
                                       {ZBase::String2Guid, kPlain},
                                       {ZBase::MSString2Guid, kBraces}}) {
        const test::Units good = test::ToUnits(form);
        for (std::size_t place = 0; place != good.size(); ++place) {
            test::Units bad = good;
            for (unsigned int unit = 1; unit < 0x10000; ++unit) {
                const bool accepted =
                    isDigit(static_cast<unsigned char>(form[place])) ? isDigit(unit) : unit == good[place];
                bad[place] = static_cast<unsigned short>(unit);
                _GUID guid = kExample;
                ASSERT_EQ(parser(guid, bad.c_str()), accepted) << form << " at " << place << ": " << unit;
                ASSERT_TRUE(accepted || IsZero(guid));
            }
        }
    }
}

TEST(Guid, DigitsThatOnlyLookLikeOnesAreRefused) {
    _GUID guid;
    std::basic_string<unsigned short> wide = test::ToUnits(kLibrary);
    wide[0] = 0xFF10;  // a full-width zero
    EXPECT_FALSE(ZBase::String2Guid(guid, wide.c_str()));
    wide[0] = 0x0130;  // the low octet is a digit
    EXPECT_FALSE(ZBase::String2Guid(guid, wide.c_str()));
}

TEST(Guid, RandomRecordsGoThereAndBackInEveryForm) {
    std::mt19937_64 random(1);
    for (int i = 0; i != 20000; ++i) {
        _GUID guid;
        const std::uint64_t words[] = {random(), random()};
        std::memcpy(&guid, words, sizeof guid);
        _GUID back;
        ASSERT_TRUE(ZBase::String2Guid(back, ZBase::Guid2String(guid).c_str()) && IsSame(back, guid));
        ASSERT_TRUE(ZBase::String2Guid(back, ZBase::Guid2MSUniString(guid).c_str()) && IsSame(back, guid));
        ASSERT_TRUE(ZBase::MSString2Guid(back, ZBase::Guid2MSString(guid).c_str()) && IsSame(back, guid));
        // The library form is the memory as little-endian words.
        std::uint32_t memory[4];
        std::memcpy(memory, &guid, sizeof guid);
        char text[33];
        std::snprintf(text, sizeof text, "%08X%08X%08X%08X", memory[0], memory[1], memory[2], memory[3]);
        ASSERT_EQ(Narrow(ZBase::Guid2String(guid)), text);
    }
}

TEST(Guid, TextConstructorTakesEveryForm) {
    EXPECT_TRUE(GUID(test::ToUnits(kLibrary).c_str()) == kExample);
    EXPECT_TRUE(GUID(test::ToUnits(kPlain).c_str()) == kExample);
    EXPECT_TRUE(GUID(test::ToUnits(kBraces).c_str()) == kExample);
}

TEST(Guid, TextConstructorThrowsForAnythingElse) {
    for (const char* text : {"", "{", "x", "0011223366774455BBAA9988FFEEDDC",
                             "{00112233445566778899AABBCCDDEEFF}", " 0112233-4455-6677-8899-AABBCCDDEEFF"}) {
        try {
            GUID(test::ToUnits(text).c_str());
            ADD_FAILURE() << text;
        } catch (const ZBase::ExceptionImpl<ZBase::Message>& failure) {
            EXPECT_EQ(failure.GetDomain(), 0);
            EXPECT_EQ(failure.GetID(), -1);
            EXPECT_EQ(Wide(failure.GetMessage()), u"ZBase::GUID: cannot parse string.");
        }
    }
}

TEST(Guid, ComparesFieldByField) {
    const auto with = [](std::uint32_t data1, std::uint16_t data2, std::uint16_t data3, unsigned char first,
                         unsigned char last) {
        return _GUID{data1, data2, data3, {first, 0, 0, 0, 0, 0, 0, last}};
    };
    // ascending; as memory or as text several neighbours would sort the other way round
    const _GUID ascending[] = {
        with(0, 0, 0, 0, 0),          with(0, 0, 0, 0, 1),         with(0, 0, 0, 1, 0),
        with(0, 0, 0, 0xFF, 0),       with(0, 0, 1, 0, 0),         with(0, 0, 0x100, 0, 0),
        with(0, 0, 0xFFFF, 0, 0),     with(0, 1, 0, 0, 0),         with(0, 0x100, 0, 0, 0),
        with(0, 0xFFFF, 0, 0, 0),     with(1, 0, 0, 0, 0),         with(0x100, 0, 0, 0, 0),
        with(0x7FFFFFFF, 0, 0, 0, 0), with(0xFFFFFFFF, 0, 0, 0, 0)};
    for (const _GUID& left : ascending) {
        for (const _GUID& right : ascending) {
            const int answer = ZBase::CompareGUID(left, right);
            EXPECT_EQ(answer < 0, &left < &right);
            EXPECT_EQ(answer > 0, &left > &right);
            EXPECT_EQ(GUID(left) < right, &left < &right);
            EXPECT_EQ(GUID(left) == right, &left == &right);
            EXPECT_EQ(GUID(left) != right, &left != &right);
            EXPECT_EQ(GUID(left) == GUID(right), &left == &right);
            EXPECT_EQ(GUID(left) != GUID(right), &left != &right);
            EXPECT_EQ(left == GUID(right), &left == &right);
            EXPECT_EQ(left != GUID(right), &left != &right);
        }
    }
    EXPECT_EQ(ZBase::CompareGUID(ascending[10], ascending[11]), -1);
    EXPECT_EQ(ZBase::CompareGUID(ascending[11], ascending[10]), 1);
}

TEST(Guid, AssignsAsAPlainRecord) {
    GUID guid(kExample);
    GUID other;
    EXPECT_FALSE(other == guid);
    other = guid;
    EXPECT_TRUE(other == kExample);
    const _GUID zero{};
    other = zero;
    EXPECT_TRUE(other == zero);
    other = std::move(guid);
    EXPECT_TRUE(other == kExample);
}

TEST(GuidMadeAnew, IsAnotherEachTimeAndNotTheNullOne) {
    const GUID first;
    const GUID second;
    EXPECT_FALSE(first == second);
    EXPECT_FALSE(IsZero(first));
    EXPECT_FALSE(IsZero(second));
}

TEST(GuidMadeAnew, FailsWhereTheSystemHasNoRandomNumbers) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("NoEntropyProbe")});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    const std::string failure =
        "1824 ZBase::CreateGUID: ::UuidCreate failed.\n"
        "System Error 0x00000720 (1824): --- The unique identifier is valid on this computer only.\n";
    EXPECT_EQ(child.output, failure + failure +
                                "by the device one of version 4, variant 2\n"
                                "made after an interruption\n");
}

TEST(GuidMadeAnew, IsRandomAndOfTheVariantOfRfc4122) {
    for (int i = 0; i != 1000; ++i) {
        const std::string text = Narrow(ZBase::Guid2MSUniString(GUID()));
        EXPECT_EQ(text[14], '4') << text;
        EXPECT_NE(std::string("89AB").find(text[19]), std::string::npos) << text;
    }
}

TEST(GuidMadeAnew, IsUniqueAmongAMillion) {
    std::unordered_set<std::string> seen;
    seen.reserve(1000000);
    for (int i = 0; i != 1000000; ++i) {
        _GUID guid;
        ZBase::CreateGUID(guid);
        seen.emplace(reinterpret_cast<const char*>(&guid), sizeof guid);
    }
    EXPECT_EQ(seen.size(), 1000000u);
}

// The result of an independent reader for texts, a line each.
std::string ReadIndependently(const std::string& columns, const std::vector<std::string>& texts) {
    std::vector<std::string> command = {"/usr/bin/uuidparse", "--noheadings", "--output", columns};
    command.insert(command.end(), texts.begin(), texts.end());
    std::string output;  // columns are padded
    for (const char c : test::RunChild(command).output) {
        if (c == '\n' && output.ends_with(' ')) output.pop_back();
        if (c != ' ' || !output.ends_with(' ')) output += c;
    }
    return output;
}

TEST(GuidMadeAnew, IsReadByAnIndependentReader) {
    std::vector<std::string> texts;
    std::string expected;
    for (int i = 0; i != 500; ++i) {
        texts.push_back(Narrow(ZBase::Guid2MSUniString(GUID())));
        expected += texts.back() + " DCE random\n";
    }
    EXPECT_EQ(ReadIndependently("UUID,VARIANT,TYPE", texts), expected);
}

// Its variant is in the upper bits of `Data4[0]`, wherever the text has them.
TEST(Guid, AnyRecordIsReadByAnIndependentReader) {
    std::mt19937_64 random(2);
    std::vector<std::string> texts = {Narrow(ZBase::Guid2MSUniString(kExample))};
    std::string expected = std::string(kPlain) + " DCE\n";
    for (int i = 0; i != 1000; ++i) {
        _GUID guid;
        const std::uint64_t words[] = {random(), random()};
        std::memcpy(&guid, words, sizeof guid);
        texts.push_back(Narrow(ZBase::Guid2MSUniString(guid)));
        const unsigned int bits = guid.Data4[0] >> 5;
        expected += texts.back() + (bits < 4    ? " NCS\n"
                                    : bits < 6  ? " DCE\n"
                                    : bits == 6 ? " Microsoft\n"
                                                : " other\n");
    }
    EXPECT_EQ(ReadIndependently("UUID,VARIANT", texts), expected);
}

}  // namespace
