// Every character of an encoding both ways, and invalid text in it, compared with `iconv`. The encodings are
// those in which the C library delays a character, makes several of one octet, or needs more octets for one
// than the locale says. With ZBASE_ALL_ENCODINGS set they are all with a character map in the system.

#include <Base/text/MultibyteConversions.h>

#include <gtest/gtest.h>

#include <iconv.h>
#include <langinfo.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Failures.h"
#include "tests/support/GuardedArray.h"
#include "tests/support/Locales.h"
#include "tests/support/WideText.h"

namespace {

using test::ToUnits;
using test::Units;

struct Encoding {
    std::string name;
    int longest;  // octets, as the system's character map has it; 0 to compile that map
};

std::vector<Encoding> Encodings() {
    if (std::getenv("ZBASE_ALL_ENCODINGS") == nullptr) {
        return {{"TSCII", 1},
                {"CP1255", 1},
                {"CP1258", 1},
                {"TCVN5712-1", 2},
                {"ISO_6937", 1},
                {"T.61-8BIT", 1},
                {"ANSI_X3.110-1983", 1},
                {"GB18030", 4},
                {"EUC-TW", 4},
                {"BIG5-HKSCS", 2},
                {"EUC-JISX0213", 3},
                {"SHIFT_JISX0213", 2},
                {"EUC-KR", 2},
                {"JOHAB", 2},
                {"UTF-8", 6}};
    }
    std::vector<Encoding> all;
    for (const auto& entry : std::filesystem::directory_iterator("/usr/share/i18n/charmaps")) {
        all.push_back({entry.path().stem(), 0});
    }
    std::sort(all.begin(), all.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return all;
}

/// The result of `iconv` for a text, as the characters of the converted part.
class Iconv {
public:
    Iconv(const char* to, const char* from) : mHandle(iconv_open(to, from)) {}
    ~Iconv() {
        if (Works()) iconv_close(mHandle);
    }
    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    bool Works() const { return mHandle != reinterpret_cast<iconv_t>(-1); }

    /// Appends the converted part of `text` to `out`, including the return to the initial state. Returns the
    /// octets that were converted: all, or those before a bad or truncated character.
    std::size_t Convert(const char* text, std::size_t size, std::string& out) {
        auto* in = const_cast<char*>(text);
        std::size_t left = size;
        iconv(mHandle, nullptr, nullptr, nullptr, nullptr);
        while (left != 0 && Step(&in, &left, out)) continue;
        while (Step(nullptr, nullptr, out)) continue;
        return size - left;
    }

private:
    // True when there is more to come.
    bool Step(char** in, std::size_t* left, std::string& out) {
        char piece[4096];
        char* end = piece;
        std::size_t room = sizeof piece;
        const std::size_t result = iconv(mHandle, in, left, &end, &room);
        out.append(piece, end);
        return result == static_cast<std::size_t>(-1) && errno == E2BIG;
    }

    iconv_t mHandle;
};

void AppendUnits(char32_t value, Units& units) {
    if (value > 0xFFFF) {
        units += static_cast<unsigned short>(0xD7C0 + (value >> 10));
        units += static_cast<unsigned short>(0xDC00 + (value & 0x3FF));
    } else {
        units += static_cast<unsigned short>(value);
    }
}

struct Pair {
    Units units;
    std::string octets;
};

class EncodingsOfTheSystem : public testing::TestWithParam<Encoding> {
protected:
    void SetUp() override {
        try {
            const Encoding& encoding = GetParam();
            if (encoding.longest == 0) {
                mLocale.emplace("POSIX." + encoding.name);
            } else {
                mLocale.emplace(encoding.name, encoding.longest);
            }
        } catch (const std::runtime_error& failure) {
            ASSERT_EQ(GetParam().longest, 0) << failure.what();
            GTEST_SKIP() << failure.what();
        }
        const char* name = nl_langinfo(CODESET);
        mDecoder.emplace("UTF-32LE", name);
        mEncoder.emplace(name, "UTF-32LE");
        if (!mDecoder->Works() || !mEncoder->Works()) GTEST_SKIP() << "no conversion of " << name;
        std::string end;
        mDecoder->Convert("", 1, end);
        if (end != std::string(4, '\0')) GTEST_SKIP() << "a zero ends no text in " << name;
    }

    static bool IsGood(const std::string& octets) { return octets.find('\0') == std::string::npos; }

    // Null when the encoding has no such character.
    std::optional<std::string> Encoded(char32_t value) {
        std::string octets;
        const std::size_t taken =
            mEncoder->Convert(reinterpret_cast<const char*>(&value), sizeof value, octets);
        if (taken != sizeof value) return {};
        return octets;
    }

    // The text with a "?" for each octet that begins no character; `bad` counts these.
    Units Decoded(const std::string& octets, std::size_t& bad) {
        Units units;
        bad = 0;
        for (std::size_t start = 0; start != octets.size();) {
            std::string values;
            const std::size_t taken = mDecoder->Convert(octets.data() + start, octets.size() - start, values);
            // Without a result, the converter has skipped an unknown code.
            if (!values.empty()) start += taken;
            for (std::size_t i = 0; i != values.size(); i += sizeof(char32_t)) {
                char32_t value;
                values.copy(reinterpret_cast<char*>(&value), sizeof value, i);
                bad += value == 0;  // it would end the text
                AppendUnits(value == 0 ? '?' : value, units);
            }
            if (start == octets.size()) break;
            units += '?';
            ++bad;
            ++start;
        }
        return units;
    }

    // At the end of a page, in both modes.
    void ExpectDecodes(const std::string& octets, bool throwing = true) {
        std::size_t bad = 0;
        const Units units = Decoded(octets, bad);
        char* const text = static_cast<char*>(mPages.Get()) + kPageText - octets.size() - 1;
        std::copy_n(octets.c_str(), octets.size() + 1, text);
        ASSERT_EQ(test::Text(ZBase::MultiByteToWideChar(text, true)), units)
            << testing::PrintToString(octets);
        if (bad == 0) {
            ASSERT_EQ(test::Text(ZBase::MultiByteToWideChar(text, false)), units)
                << testing::PrintToString(octets);
        } else if (throwing) {
            ASSERT_EQ(test::ConversionFailure([&] { ZBase::MultiByteToWideChar(text, false); }),
                      "::mbstowcs() failed.")
                << testing::PrintToString(octets);
        }
    }

    void ExpectEncodes(const Units& units, const std::optional<std::string>& octets, bool throwing) {
        const std::string replaced = octets.value_or(std::string(units.size(), '?'));
        ASSERT_EQ(test::Text(ZBase::WideCharToMultiByte(units.c_str(), true)), replaced)
            << testing::PrintToString(units);
        if (octets) {
            ASSERT_EQ(test::Text(ZBase::WideCharToMultiByte(units.c_str(), false)), replaced);
        } else if (throwing) {
            ASSERT_EQ(test::ConversionFailure([&] { ZBase::WideCharToMultiByte(units.c_str(), false); }),
                      "::wcstombs() failed.");
        }
    }

    // Each character of the encoding. Most of the planes above the first are empty, and are sampled.
    std::vector<Pair> Characters() {
        const char32_t stride = GetParam().longest == 0 ? 1 : 101;
        std::vector<Pair> all;
        for (char32_t value = 1; value <= 0x10FFFF; value += value < 0x10000 ? 1 : stride) {
            if (value >= 0xD800 && value <= 0xDFFF) continue;
            const std::optional<std::string> octets = Encoded(value);
            if (!octets || !IsGood(*octets) || octets->empty()) continue;
            all.push_back({{}, *octets});
            AppendUnits(value, all.back().units);
        }
        return all;
    }

    static constexpr std::size_t kPageText = 4096;

    std::optional<test::ScopedLocale> mLocale;
    std::optional<Iconv> mDecoder, mEncoder;
    test::GuardedMemory mPages{kPageText};
};

TEST_P(EncodingsOfTheSystem, EveryCharacterIsWrittenAsIconvWritesIt) {
    const char32_t stride = GetParam().longest == 0 ? 1 : 101;
    for (char32_t value = 1; value <= 0x10FFFF; value += value < 0x10000 ? 1 : stride) {
        if (value >= 0xD800 && value <= 0xDFFF) continue;
        const std::optional<std::string> octets = Encoded(value);
        if (octets && !IsGood(*octets)) continue;
        Units units;
        AppendUnits(value, units);
        ASSERT_NO_FATAL_FAILURE(ExpectEncodes(units, octets, value % 61 == 0));
    }
}

TEST_P(EncodingsOfTheSystem, EveryOneAndTwoOctetsAreReadAsIconvReadsThem) {
    for (int first = 1; first <= 0xFF; ++first) {
        const std::string octet(1, static_cast<char>(first));
        ASSERT_NO_FATAL_FAILURE(ExpectDecodes(octet));
        for (int second = 1; second <= 0xFF; ++second) {
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(octet + static_cast<char>(second), second % 61 == 0));
        }
    }
}

TEST_P(EncodingsOfTheSystem, EveryCharacterThatIsCutOffIsBad) {
    std::size_t number = 0;
    for (const Pair& pair : Characters()) {
        ASSERT_NO_FATAL_FAILURE(ExpectDecodes(pair.octets));
        for (std::size_t size = 1; size < pair.octets.size(); ++size) {
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes("abc" + pair.octets.substr(0, size), ++number % 61 == 0));
        }
        if (pair.octets.size() > 2) {
            // A bad octet in the middle of two characters, and between them.
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(pair.octets + '\xFF' + pair.octets, false));
            ASSERT_NO_FATAL_FAILURE(ExpectDecodes(pair.octets.substr(0, 2) + '\xFF' + pair.octets, false));
        }
    }
}

TEST_P(EncodingsOfTheSystem, TextOfAllCharactersConvertsWhereverItIsCutIntoPieces) {
    if (Encoded('a') != "a" || Encoded(' ') != " ")
        GTEST_SKIP() << "no letters of ASCII to move the pieces by";
    std::string values;
    Units units;
    for (const Pair& pair : Characters()) {
        if (units.size() % 509 < 4) {
            units += ' ';
            values += std::string(" \0\0\0", 4);
        }
        std::string value;
        mDecoder->Convert(pair.octets.data(), pair.octets.size(), value);
        std::size_t bad = 0;
        units += Decoded(pair.octets, bad);
        values += value;
    }
    std::string octets;
    if (mEncoder->Convert(values.data(), values.size(), octets) != values.size()) {
        GTEST_SKIP() << "characters that come out of it do not all go into it";
    }
    for (std::size_t shift = 0; shift != 5; ++shift) {
        const std::string start(shift, 'a');
        ASSERT_TRUE(test::Text(ZBase::WideCharToMultiByte((ToUnits(start) + units).c_str(), false)) ==
                    start + octets);
        std::size_t bad = 0;
        const Units back = Decoded(start + octets, bad);
        ASSERT_EQ(bad, 0u);
        ASSERT_TRUE(test::Text(ZBase::MultiByteToWideChar((start + octets).c_str(), false)) == back);
        ASSERT_TRUE(test::Text(ZBase::MultiByteToWideChar((start + octets + '\x80').c_str(), true)) ==
                    Decoded(start + octets + '\x80', bad));
    }
}

std::string NameOf(const testing::TestParamInfo<Encoding>& info) {
    std::string name = info.param.name;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(Each, EncodingsOfTheSystem, testing::ValuesIn(Encodings()), NameOf);

}  // namespace
