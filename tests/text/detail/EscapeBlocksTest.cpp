// Octets as text by every kind of kernel that this processor can run, beside a model that goes octet by
// octet.

#include <Base/text/BinaryText.h>
#include <Base/text/detail/TextKernels.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/GuardedArray.h"

namespace {

using ZBase::detail::KernelList;
using ZBase::detail::TextKernels;
using Units = std::vector<unsigned short>;

constexpr std::size_t kLongest = 300;
constexpr std::size_t kPage = 4096;

std::vector<const TextKernels*> Kinds() {
    const KernelList list = ZBase::detail::RunnableKernels();
    return {list.kinds, list.kinds + list.count};
}

std::string SlowDigits(unsigned char octet) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02X", static_cast<unsigned int>(octet));
    return digits;
}

std::string SlowEscape(const std::string& text) {
    static const std::string kUnreserved =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    std::string escaped;
    for (const char octet : text) {
        if (kUnreserved.find(octet) != std::string::npos) {
            escaped += octet;
        } else {
            escaped += '%' + SlowDigits(static_cast<unsigned char>(octet));
        }
    }
    return escaped;
}

Units SlowUnits(const std::string& text) {
    Units units;
    for (const char octet : text) {
        for (const char digit : SlowDigits(static_cast<unsigned char>(octet)))
            units.push_back(static_cast<unsigned char>(digit));
    }
    return units;
}

// Octets that stay and octets that do not, in runs of changing lengths; all values come.
std::string Mixed(std::size_t length, unsigned int seed) {
    std::string text;
    unsigned int state = seed * 2654435761u + 1;
    while (text.size() < length) {
        state = state * 1664525 + 1013904223;
        const unsigned int run = state >> 28;
        const auto octet = static_cast<char>(state >> 16);
        text += std::string(run, 'q') + octet;
    }
    return text.substr(0, length);
}

const unsigned char* Octets(const void* text) {
    return static_cast<const unsigned char*>(text);
}

TEST(EscapeBlocks, EveryOctetAtEveryPlaceOfABlock) {
    for (const TextKernels* kernels : Kinds()) {
        for (unsigned int octet = 0; octet != 256; ++octet) {
            const std::string one(1, static_cast<char>(octet));
            const std::string expected = SlowEscape(one);
            for (std::size_t at = 0; at != 64; ++at) {
                std::string text(96, 'a');
                text[at] = one[0];
                std::string escaped(95 + expected.size(), '\0');
                ASSERT_EQ(kernels->countReserved(Octets(text.data()), text.size()), expected.size() / 3)
                    << kernels->name << ' ' << octet << " at " << at;
                kernels->escapeReserved(Octets(text.data()), text.size(), escaped.data());
                ASSERT_EQ(escaped, std::string(at, 'a') + expected + std::string(95 - at, 'a'))
                    << kernels->name << ' ' << octet;
            }
            const std::string many(32, one[0]);
            Units digits(64);
            kernels->putDigits(Octets(many.data()), many.size(), digits.data());
            ASSERT_EQ(digits, SlowUnits(many)) << kernels->name << ' ' << octet;
        }
    }
}

TEST(EscapeBlocks, EveryLengthAndAlignment) {
    for (const TextKernels* kernels : Kinds()) {
        for (std::size_t length = 0; length <= kLongest; ++length) {
            for (const std::size_t shift : {0, 1, 7, 15, 33, 63}) {
                const std::string shifted =
                    std::string(shift, '%') + Mixed(length, static_cast<unsigned int>(length + shift));
                const std::string text = shifted.substr(shift);
                const unsigned char* const source = Octets(shifted.data()) + shift;
                const std::string expected = SlowEscape(text);
                ASSERT_EQ(length + 2 * kernels->countReserved(source, length), expected.size())
                    << kernels->name;
                std::string escaped(shift + expected.size() + 20, '#');
                kernels->escapeReserved(source, length, escaped.data() + shift);
                ASSERT_EQ(escaped, std::string(shift, '#') + expected + std::string(20, '#'))
                    << kernels->name;
                Units digits(2 * length);
                kernels->putDigits(source, length, digits.data());
                ASSERT_EQ(digits, SlowUnits(text)) << kernels->name;
            }
        }
    }
}

// Pages that can't be touched stand right before and right behind text and room.
TEST(EscapeBlocks, NothingIsTouchedBesideATextOrItsRoom) {
    const test::GuardedMemory source(kPage);
    const test::GuardedMemory room(kPage);
    for (const TextKernels* kernels : Kinds()) {
        for (const bool isAllEscaped : {false, true}) {
            for (std::size_t length = 0; length <= kLongest; ++length) {
                const std::string text = isAllEscaped ? std::string(length, '\xC3')
                                                      : Mixed(length, static_cast<unsigned int>(length));
                const std::string expected = SlowEscape(text);
                auto* const first = static_cast<unsigned char*>(source.GetFirst());
                unsigned char* const last = first + kPage - length;
                auto* const firstRoom = static_cast<char*>(room.GetFirst());
                char* const lastRoom = firstRoom + kPage - expected.size();
                std::memcpy(first, text.data(), length);
                kernels->escapeReserved(first, length, lastRoom);
                ASSERT_EQ(std::string(lastRoom, expected.size()), expected) << kernels->name;
                std::memcpy(last, text.data(), length);
                ASSERT_EQ(length + 2 * kernels->countReserved(last, length), expected.size())
                    << kernels->name;
                kernels->escapeReserved(last, length, firstRoom);
                ASSERT_EQ(std::string(firstRoom, expected.size()), expected) << kernels->name;
                auto* const units = static_cast<unsigned short*>(room.GetFirst()) + kPage / 2 - 2 * length;
                kernels->putDigits(last, length, units);
                ASSERT_EQ(Units(units, units + 2 * length), SlowUnits(text)) << kernels->name;
            }
        }
    }
}

TEST(EscapeBlocks, ResultsAreThoseOfTheKindInUse) {
    for (const TextKernels* kernels : Kinds()) {
        ZBase::detail::UseKernels(kernels);
        const std::string text = Mixed(5000, 5);
        EXPECT_EQ(ZBase::UrlEncode(text), SlowEscape(text)) << kernels->name;
        const Units expected = SlowUnits(text);
        const ZBase::ReturnWString digits = ZBase::Binary2String(text.data(), 5000);
        EXPECT_EQ(Units(digits.c_str(), digits.c_str() + expected.size()), expected) << kernels->name;
        EXPECT_EQ(digits.c_str()[expected.size()], 0);
    }
    ZBase::detail::UseKernels(nullptr);
}

}  // namespace
