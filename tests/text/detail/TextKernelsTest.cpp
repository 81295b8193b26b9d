// Every kind of kernel that this processor can run, compared with the plain one, which leaves all but ASCII
// to the scalar code.

#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/TextKernels.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/SlowUnicode.h"
#include "tests/support/WideText.h"

namespace {

using test::Outcome;
using test::Units;
using ZBase::detail::KernelList;
using ZBase::detail::TextKernels;

constexpr std::size_t kLongest = 300;
constexpr unsigned short kUntouched = 0xAAAA;

std::vector<const TextKernels*> Kinds() {
    const KernelList list = ZBase::detail::RunnableKernels();
    return {list.kinds, list.kinds + list.count};
}

// All conversions use one kind.
class Using {
public:
    explicit Using(const TextKernels* kernels) { ZBase::detail::UseKernels(kernels); }
    ~Using() { ZBase::detail::UseKernels(nullptr); }
    Using(const Using&) = delete;
    Using& operator=(const Using&) = delete;
};

// The whole capacity for a text, so that writes out of place are detected.
Outcome<Units> Decode(const TextKernels* kernels, std::string_view octets, bool replace) {
    const Using kind(kernels);
    Outcome<Units> outcome;
    outcome.text.assign(octets.size() + 9, kUntouched);
    outcome.failure = test::ConversionFailure([&] {
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(octets.data()), outcome.text.data(),
                              octets.size(), replace);
    });
    return outcome;
}

Outcome<std::string> Encode(const TextKernels* kernels, const Units& units, int mode) {
    const Using kind(kernels);
    Outcome<std::string> outcome;
    outcome.failure = test::ConversionFailure([&] {
        const ZBase::ReturnString result =
            mode == 2 ? ZBase::UTF16ToUTF8(units.c_str()) : ZBase::WideCharToUTF8(units.c_str(), mode != 0);
        // To the end of the block, which is all zero after the text.
        outcome.text.assign(result.c_str(), 4 * units.size() + 1);
    });
    return outcome;
}

void ExpectSameDecoding(std::string_view octets) {
    const TextKernels* const plain = ZBase::detail::PlainKernels();
    for (const bool replace : {false, true}) {
        const Outcome<Units> expected = Decode(plain, octets, replace);
        for (const TextKernels* kernels : Kinds()) {
            const Outcome<Units> actual = Decode(kernels, octets, replace);
            if (actual.text == expected.text && actual.failure == expected.failure) continue;
            ADD_FAILURE() << kernels->name << (replace ? " replacing " : " strict ")
                          << testing::PrintToString(std::string(octets)) << ": " << actual.failure
                          << " instead of " << expected.failure;
        }
    }
}

void ExpectSameEncoding(const Units& units) {
    const TextKernels* const plain = ZBase::detail::PlainKernels();
    for (const int mode : {0, 1, 2}) {
        const Outcome<std::string> expected = Encode(plain, units, mode);
        for (const TextKernels* kernels : Kinds()) {
            const Outcome<std::string> actual = Encode(kernels, units, mode);
            if (actual.text == expected.text && actual.failure == expected.failure) continue;
            ADD_FAILURE() << kernels->name << " mode " << mode << ' ' << testing::PrintToString(units) << ": "
                          << actual.failure << " instead of " << expected.failure;
        }
    }
}

// Texts of each length of character, and mixed.
const std::string kTexts[] = {"a",
                              "\xC3\xA4",
                              "\xE4\xB8\x96",
                              "\xF0\x9F\x98\x80",
                              "ab\xC3\xA4",
                              "\xD0\xB6\xE2\x80\x94 ",
                              "x\xE4\xB8\x96\xF0\x9F\x98\x80\xC3\xA4",
                              "\xEF\xBC\x8C\xF0\x90\x80\x80\xF4\x8F\xBF\xBF\xEE\x80\x80\xED\x9F\xBF"};

const std::string kFlaws[] = {"\x80",
                              "\xFF",
                              "\xC3",
                              "\xE2\x82",
                              "\xF0\x9F\x98",
                              "\xC0\x80",
                              "\xC1\xBF",
                              "\xE0\x9F\xBF",
                              "\xED\xA0\x80",
                              "\xEF\xBF\xBE",
                              "\xEF\xBF\xBF",
                              "\xF0\x8F\xBF\xBF",
                              "\xF4\x90\x80\x80",
                              "\xF5\x80\x80\x80",
                              "\xF8\x88\x80\x80\x80",
                              "\xFC\x84\x80\x80\x80\x80",
                              "\xF0\x8F\xBF\xBD",
                              "\xE4\xB8\x96\x80",
                              "\xF0\x9F\x98\x80\x80",
                              std::string(1, '\0')};

std::string Repeat(const std::string& piece, std::size_t length) {
    std::string text;
    while (text.size() < length) text += piece;
    return text.substr(0, length);
}

Units AsUnits(const std::string& octets) {
    return test::SlowUtf8ToWide(octets, true).text;
}

TEST(TextKernels, TheLastKindIsTaken) {
    EXPECT_EQ(&ZBase::detail::Kernels(), Kinds().back());
    EXPECT_EQ(Kinds().front(), ZBase::detail::PlainKernels());
#if defined(__x86_64__)
    EXPECT_GE(Kinds().size(), 2U);
#elif defined(__aarch64__)
    EXPECT_STREQ(Kinds().back()->name, "NEON");
#endif
}

// All tests here go through the kinds that this processor can run. The list of skipped tests tells which it
// can't.
TEST(TextKernels, OfTheWidestKindRunHere) {
#if defined(__x86_64__)
    if (std::strcmp(Kinds().back()->name, "AVX-512") != 0)
        GTEST_SKIP() << "this processor ends at " << Kinds().back()->name
                     << ": the kernels for AVX-512 were compiled and not run";
#endif
}

// Each value is at every position of a block in some of these texts.
TEST(TextKernels, EveryScalarValueInLongTexts) {
    for (const char* const between : {"", "a", "\xE2\x82\xAC"}) {
        std::string octets;
        Units units;
        for (unsigned long value = 1; value < 0x110000; ++value) {
            if ((value >= 0xD800 && value <= 0xDFFF) || value == 0xFFFE || value == 0xFFFF) continue;
            if (value % 7 == 0) octets += between;
            if (value < 0x800) {
                if (value < 0x80) {
                    octets += static_cast<char>(value);
                } else {
                    octets += static_cast<char>(0xC0 | value >> 6);
                    octets += static_cast<char>(0x80 | (value & 0x3F));
                }
            } else {
                if (value >= 0x10000) {
                    octets += static_cast<char>(0xF0 | value >> 18);
                    octets += static_cast<char>(0x80 | (value >> 12 & 0x3F));
                } else {
                    octets += static_cast<char>(0xE0 | value >> 12);
                }
                octets += static_cast<char>(0x80 | (value >> 6 & 0x3F));
                octets += static_cast<char>(0x80 | (value & 0x3F));
            }
        }
        const TextKernels* const plain = ZBase::detail::PlainKernels();
        const Outcome<Units> expected = Decode(plain, octets, false);
        ASSERT_EQ(expected.failure, "");
        units = expected.text.c_str();
        for (const TextKernels* kernels : Kinds()) {
            EXPECT_TRUE(Decode(kernels, octets, false).text == expected.text) << kernels->name;
            for (const int mode : {0, 1, 2}) {
                EXPECT_TRUE(Encode(kernels, units, mode).text.c_str() == octets) << kernels->name;
            }
        }
    }
}

// Every text piece begins at every offset from the blocks of 16, 32 and 64, and ends there.
TEST(TextKernels, EachCharacterAtEveryPlaceOfABlock) {
    for (const std::string& filler : kTexts) {
        const std::string front = Repeat(filler, filler.size() * (140 / filler.size()));
        for (const std::string& piece : kTexts) {
            for (std::size_t at = 0; at <= 130; ++at) {
                for (const std::size_t behind : {0, 1, 17, 70}) {
                    std::string text = std::string(at, 'a') + piece;
                    text += Repeat(filler, filler.size() * (behind / filler.size()));
                    ExpectSameDecoding(text);
                    ExpectSameEncoding(AsUnits(text));
                    if (HasFailure()) return;
                }
            }
            ExpectSameDecoding(front + piece + front);
            ExpectSameEncoding(AsUnits(front + piece + front));
        }
    }
}

TEST(TextKernels, FlawAtEveryPositionOfTextsUpTo300Octets) {
    std::size_t turn = 0;
    for (std::size_t length = 0; length <= kLongest; ++length) {
        for (std::size_t position = 0; position < length; ++position) {
            // The sizes of the two lists are coprime, so all combinations occur.
            const std::string& flaw = kFlaws[turn % std::size(kFlaws)];
            std::string text = Repeat(kTexts[turn % 7], length);
            ++turn;
            text.replace(position, flaw.size(), flaw);
            text.resize(length);
            ExpectSameDecoding(text);
            if (HasFailure()) return;
        }
    }
}

TEST(TextKernels, FlawedUnitAtEveryPositionOfTextsUpTo200Units) {
    const Units flaws[] = {{0xFFFE},         {0xFFFF},         {0xD83D}, {0xDE00},
                           {0xDE00, 0xD83D}, {0xD83D, 0xD83D}, {0xDFFF}};
    std::size_t turn = 0;
    for (std::size_t length = 1; length <= 200; length += 1 + length / 70) {
        for (std::size_t position = 0; position < length; ++position) {
            const Units piece = AsUnits(kTexts[turn % 8]);
            const Units& flaw = flaws[turn % 7];
            turn += position == 0 ? 2 : 1;
            Units units;
            while (units.size() < length) units += piece;
            units.replace(position, flaw.size(), flaw);
            units.resize(length);
            ExpectSameEncoding(units);
            if (HasFailure()) return;
        }
    }
}

// Bad octets at one distance: the conversion up to each, and where the kernels continue.
TEST(TextKernels, FlawsAtRegularDistances) {
    for (const std::size_t distance : {3, 31, 32, 33, 64, 100, 1000, 1023}) {
        for (const std::string& piece : kTexts) {
            std::string text = Repeat(piece, 9000);
            for (std::size_t at = distance; at < text.size(); at += distance) text[at] = '\xFF';
            ExpectSameDecoding(text);
        }
    }
}

// Between flaws ASCII is written by whole steps. Six octets may make one unit, so the destination may be
// nearly full while the text has many octets left; after the terminator nothing may change.
TEST(TextKernels, AsciiBetweenFlawsLeavesWhatIsBehindTheTextUntouched) {
    const std::string sixOctets = "\xFC\x84\x80\x80\x80\x80";
    for (const TextKernels* kernels : Kinds()) {
        for (const std::size_t run : {1, 2, 7, 8, 9, 17, 61, 62}) {
            for (std::size_t behind = 0; behind <= 12; ++behind) {
                std::string text = '\xFF' + std::string(run, 'a') + '\xFF' + std::string(run, 'b');
                for (std::size_t i = 0; i != behind; ++i) text += sixOctets;
                for (const std::size_t cut : {0, 1, 3}) {
                    const std::string front = text.substr(0, text.size() - cut);
                    const Units expected = test::SlowUtf8ToWide(front, true).text;
                    const Units actual = Decode(kernels, front, true).text;
                    ASSERT_EQ(actual.substr(0, expected.size()), expected) << kernels->name;
                    ASSERT_EQ(actual[expected.size()], 0);
                    ASSERT_EQ(actual.find_first_not_of(kUntouched, expected.size() + 1), Units::npos)
                        << kernels->name << ' ' << run << " before " << behind;
                }
            }
        }
    }
}

TEST(TextKernels, FlawedUnitsAtRegularDistances) {
    const Units flaws[] = {{0xFFFF}, {0xDE00, 0xD83D}};
    for (const std::size_t distance : {2, 3, 7, 8, 9, 31, 32, 33, 100, 1000}) {
        for (const Units& flaw : flaws) {
            Units units(9000, 'x');
            for (std::size_t at = distance; at + 2 < units.size(); at += std::max(distance, flaw.size()))
                units.replace(at, flaw.size(), flaw);
            const Outcome<std::string> expected = test::SlowWideToUtf8(units, true);
            for (const TextKernels* kernels : Kinds()) {
                const Outcome<std::string> actual = Encode(kernels, units, 1);
                EXPECT_EQ(actual.failure, expected.failure);
                EXPECT_TRUE(actual.text.c_str() == expected.text) << kernels->name << ' ' << distance;
            }
        }
    }
}

// Inaccessible pages right before and right after text and destination.
TEST(TextKernels, NothingIsTouchedBesideATextOrItsRoom) {
    const test::GuardedMemory source(4096);
    const test::GuardedMemory room(4096);
    for (const TextKernels* kernels : Kinds()) {
        const Using kind(kernels);
        for (const std::string& piece : kTexts) {
            for (std::size_t length = 1; length <= kLongest; ++length) {
                const std::string text = Repeat(piece, length);
                const Outcome<Units> expected = test::SlowUtf8ToWide(text, true);
                auto* const first = static_cast<unsigned char*>(source.GetFirst());
                auto* const last = first + 4096 - length;
                auto* const firstRoom = static_cast<unsigned short*>(room.GetFirst());
                auto* const lastRoom = firstRoom + 2048 - length - 1;
                std::memcpy(first, text.data(), length);
                std::memcpy(last, text.data(), length);
                ASSERT_TRUE(ZBase::UTF8ToWideChar(first, lastRoom, length, true));
                ASSERT_EQ(Units(lastRoom), expected.text);
                ASSERT_TRUE(ZBase::UTF8ToWideChar(last, firstRoom, length, true));
                ASSERT_EQ(Units(firstRoom), expected.text);
            }
        }
    }
}

TEST(TextKernels, UnitsAreReadUpToTheirEndOnly) {
    const test::GuardedMemory source(4096);
    for (const TextKernels* kernels : Kinds()) {
        const Using kind(kernels);
        for (const std::string& piece : kTexts) {
            const Units whole = AsUnits(Repeat(piece, kLongest));
            for (std::size_t length = 1; length <= std::min<std::size_t>(whole.size(), 140); ++length) {
                const Units units = whole.substr(0, length);
                const Outcome<std::string> expected = Encode(ZBase::detail::PlainKernels(), units, 1);
                ZBase::detail::UseKernels(kernels);
                auto* const first = static_cast<unsigned short*>(source.GetFirst());
                auto* const last = first + 2048 - length;
                units.copy(last, length);
                units.copy(first, length);
                first[length] = 0;
                std::string behind, before;
                const std::string failure = test::ConversionFailure([&] {
                    before = ZBase::WideCharToUTF8(first, true).c_str();
                    behind = ZBase::WideCharToUTF8UsingLength(last, static_cast<unsigned int>(length), true)
                                 .c_str();
                });
                ASSERT_EQ(failure, expected.failure);
                if (!failure.empty()) continue;
                ASSERT_EQ(behind, expected.text.c_str());
                ASSERT_EQ(before, expected.text.c_str());
            }
        }
    }
}

// A kernel may write four octets for each unit, and no more.
TEST(TextKernels, EncodedOctetsStayInFourTimesTheUnits) {
    const test::GuardedMemory room(4096);
    for (const TextKernels* kernels : Kinds()) {
        for (const std::string& piece : kTexts) {
            const Units whole = AsUnits(Repeat(piece, kLongest));
            for (std::size_t length = 1; length <= std::min<std::size_t>(whole.size(), 140); ++length) {
                const Units units = whole.substr(0, length);
                if ((units.back() & 0xFC00) == 0xD800) continue;  // half a pair
                const std::string expected = test::SlowWideToUtf8(units, true).text;
                char* const first = static_cast<char*>(room.GetFirst());
                for (char* const out : {first, first + 4096 - 4 * length}) {
                    const ZBase::detail::Progress done = kernels->encodeUtf8(units.data(), length, out);
                    ASSERT_LE(done.read, length) << kernels->name;
                    ASSERT_EQ(std::string(out, done.written), expected.substr(0, done.written))
                        << kernels->name;
                }
            }
        }
    }
}

TEST(TextKernels, UnitsAreCountedAtEveryAlignmentAndBound) {
    const test::GuardedMemory memory(4096);
    auto* const end = static_cast<unsigned short*>(memory.Get()) + 2048;
    std::fill(end - 2048, end, 0x0100);
    for (const TextKernels* kernels : Kinds()) {
        for (std::size_t length = 0; length <= kLongest; ++length) {
            unsigned short* const text = end - length - 1;
            end[-1] = 0;
            EXPECT_EQ(kernels->countUnits(text, ~std::size_t{0}), length) << kernels->name;
            EXPECT_EQ(kernels->countUnits(text, length + 1), length) << kernels->name;
            EXPECT_EQ(kernels->countUnits(text, length / 2), length / 2) << kernels->name;
            end[-1] = 0x0100;
            EXPECT_EQ(kernels->countUnits(text, length + 1), length + 1) << kernels->name;
        }
    }
}

TEST(TextKernels, AsciiIsTakenUpToTheFirstOther) {
    for (const TextKernels* kernels : Kinds()) {
        for (std::size_t length = 0; length <= 200; ++length) {
            for (std::size_t other = 0; other <= length; ++other) {
                std::string text = Repeat("The quick brown fox", length);
                if (other != length) text[other] = '\x80';
                Units units(length, kUntouched);
                const auto* octets = reinterpret_cast<const unsigned char*>(text.data());
                ASSERT_EQ(kernels->widenAscii(octets, length, units.data()), other) << kernels->name;
                ASSERT_TRUE(std::equal(units.begin(), units.begin() + static_cast<std::ptrdiff_t>(other),
                                       text.begin()));
                if (other != length) units[other] = 0x4180;
                std::string back(length, '\0');
                std::copy(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(other), units.begin());
                std::fill(units.begin() + static_cast<std::ptrdiff_t>(std::min(other + 1, length)),
                          units.end(), static_cast<unsigned short>('z'));
                ASSERT_EQ(kernels->narrowAscii(units.data(), length, back.data()), other) << kernels->name;
                ASSERT_EQ(back.substr(0, other), text.substr(0, other));
            }
        }
    }
}

}  // namespace
