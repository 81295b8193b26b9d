// The decoder against a slow model: every sequence of up to three octets, longer ones by class, and flaws at
// every position of a text. Uses the buffer form, which allocates nothing.

#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "tests/support/Failures.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/SlowUnicode.h"
#include "tests/support/WideText.h"

namespace {

using test::Outcome;
using test::Units;

Outcome<Units> Decode(const std::string& octets, bool replace) {
    static std::vector<unsigned short> units(4096);
    std::fill_n(units.begin(), octets.size() + 2, 0xAAAA);
    Outcome<Units> outcome;
    outcome.failure = test::ConversionFailure([&] {
        ZBase::UTF8ToWideChar(reinterpret_cast<const unsigned char*>(octets.data()), units.data(),
                              octets.size(), replace);
        // The text may hold zeros: its end is the terminator before the unwritten part.
        std::size_t end = octets.size() + 1;
        while (units[end] == 0xAAAA) --end;
        EXPECT_EQ(units[end], 0);
        outcome.text.assign(units.data(), end);
    });
    return outcome;
}

std::string Show(const std::string& octets) {
    std::string text;
    for (const char octet : octets) {
        char digits[4];
        std::snprintf(digits, sizeof digits, "%02X ",
                      static_cast<unsigned int>(static_cast<unsigned char>(octet)));
        text += digits;
    }
    return text;
}

// Whether the sequence is well-formed, by the model.
bool ExpectSame(const std::string& octets, bool replace) {
    const Outcome<Units> expected = test::SlowUtf8ToWide(octets, replace);
    const Outcome<Units> actual = Decode(octets, replace);
    if (actual.text != expected.text || actual.failure != expected.failure) {
        ADD_FAILURE() << Show(octets) << (replace ? "replaced: " : "strict: ") << actual.failure
                      << " instead of " << expected.failure;
    }
    return expected.failure.empty();
}

// Calls `visit` with every text of `length` octets out of `octets`, after `start`, until one has failed.
template <class Visit>
void ForEachText(const std::string& start, std::size_t length, const std::string& octets, Visit visit) {
    if (length == 0) return visit(start);
    for (const char octet : octets) {
        if (testing::Test::HasFailure()) return;
        ForEachText(start + octet, length - 1, octets, visit);
    }
}

std::string AllOctets() {
    std::string octets;
    for (int octet = 0; octet != 256; ++octet) octets += static_cast<char>(octet);
    return octets;
}

// One octet or more of each kind, and those on both sides of each boundary between two kinds.
const std::string kClasses(
    "\x00\x41\x7F\x80\x81\x87\x88\x8F\x90\x9F\xA0\xBD\xBE\xBF\xC0\xC1\xC2\xDF\xE0\xED\xEF\xF0"
    "\xF4\xF5\xF8\xFC\xFE\xFF",
    28);

// The octets from `first` on. A sanitizer, under which a text takes ten times as long, has to do with those
// of each kind.
std::string OctetsFrom(int first) {
    std::string octets;
    for (const char octet : test::kIsSanitized ? kClasses : AllOctets()) {
        if (static_cast<unsigned char>(octet) >= first) octets += octet;
    }
    return octets;
}

TEST(Utf8DecodingModel, EveryTextOfOneAndTwoOctetsInBothModes) {
    for (const bool replace : {false, true}) {
        ForEachText("", 1, AllOctets(), [=](const std::string& octets) { ExpectSame(octets, replace); });
        ForEachText("", 2, AllOctets(), [=](const std::string& octets) { ExpectSame(octets, replace); });
    }
}

TEST(Utf8DecodingModel, EveryTextOfThreeOctetsReplaced) {
    ForEachText("", 2, AllOctets(), [](const std::string& two) {
        ForEachText(two, 1, OctetsFrom(0), [](const std::string& octets) { ExpectSame(octets, true); });
    });
}

// A failure costs a hundred times as much as a text, so texts that only repeat one are skipped: those after
// another ASCII octet, and most that have failed before their third octet.
TEST(Utf8DecodingModel, EveryTextOfThreeOctetsStrict) {
    const std::string ascii("\x00\x41\x7F", 3);
    ForEachText("", 1, ascii + OctetsFrom(0x80), [](const std::string& one) {
        ForEachText(one, 1, AllOctets(), [](const std::string& two) {
            const std::string failure = test::SlowUtf8ToWide(two, false).failure;
            const bool isOpen = failure.empty() || failure.find("Expect more") != std::string::npos;
            ForEachText(two, 1, isOpen ? OctetsFrom(0) : "\x41\x80\xC3\xFF",
                        [](const std::string& octets) { ExpectSame(octets, false); });
        });
    });
}

TEST(Utf8DecodingModel, FourOctetsOfEachClassBehindEveryLeadReplaced) {
    ForEachText("", 1, OctetsFrom(0), [](const std::string& lead) {
        ForEachText(lead, 3, kClasses, [](const std::string& octets) { ExpectSame(octets, true); });
    });
}

TEST(Utf8DecodingModel, FourOctetsOfEachClassStrict) {
    ForEachText("", 1, OctetsFrom(0xE0), [](const std::string& lead) {
        ForEachText(lead, 3, kClasses, [](const std::string& octets) { ExpectSame(octets, false); });
    });
}

TEST(Utf8DecodingModel, FiveAndSixOctetsOfEachClassInBothModes) {
    const std::string few("\x41\x80\x83\x84\x87\x88\x8F\xBD\xBF\xC3");
    for (const bool replace : {false, true}) {
        ForEachText("", 1, OctetsFrom(0xF0), [=](const std::string& lead) {
            ForEachText(lead, 4, few, [=](const std::string& octets) { ExpectSame(octets, replace); });
        });
        ForEachText("", 1, "\xFC\xFD", [=](const std::string& lead) {
            ForEachText(lead, 5, few, [=](const std::string& octets) { ExpectSame(octets, replace); });
        });
    }
}

TEST(Utf8DecodingModel, EveryScalarValue) {
    for (unsigned long value = 0; value <= 0x110000; ++value) {
        const std::string octets = test::SlowUtf8(value);
        const bool isCharacter =
            value < 0xD800 || (value > 0xDFFF && value < 0xFFFE) || (value > 0xFFFF && value < 0x110000);
        ASSERT_EQ(ExpectSame(octets, false), isCharacter) << value;
        ASSERT_EQ(Decode(octets, true).text, test::SlowUtf16(isCharacter ? value : 0xFFFD)) << value;
    }
}

// Texts whose characters begin at every offset from the blocks that are copied at once.
TEST(Utf8DecodingModel, FlawAtEveryPositionOfTextsUpTo200Octets) {
    const std::string pieces[] = {"a", "a\xC3\xA4", "\xE4\xB8\x96", "abcdefg\xF0\x9F\x98\x80"};
    const std::string flaws[] = {"\x80",         "\xFF",     "\xC3",        "\xE2\x82",
                                 "\xF0\x9F\x98", "\xC0\x80", "\xED\xA0\x80"};
    for (const std::string& piece : pieces) {
        std::string whole;
        while (whole.size() < 200) whole += piece;
        for (std::size_t length = 1; length <= 200; ++length) {
            for (std::size_t position = 0; position < length; ++position) {
                const std::string& flaw = flaws[(position + length) % std::size(flaws)];
                std::string octets = whole.substr(0, length);
                octets.replace(position, flaw.size(), flaw);
                ExpectSame(octets, false);
                ExpectSame(octets, true);
                ASSERT_FALSE(HasFailure());
            }
        }
    }
}

}  // namespace
