#include "tests/support/SlowUnicode.h"

#include <bitset>
#include <cstddef>
#include <cstdio>
#include <optional>

namespace test {

namespace {

std::string Bits(char octet) {
    return std::bitset<8>(static_cast<unsigned char>(octet)).to_string();
}

unsigned long Number(const std::string& bits) {
    unsigned long value = 0;
    for (const char bit : bits) value = 2 * value + (bit == '1' ? 1 : 0);
    return value;
}

std::string Hex(const char* text, unsigned long value, int width) {
    char digits[64];
    std::snprintf(digits, sizeof digits, "%0*lX.", width, value);
    return text + std::string(digits);
}

bool In(unsigned long value, unsigned long first, unsigned long last) {
    return first <= value && value <= last;
}

// Payload bits of a sequence: seven alone; else six in each octet after the lead, and the rest in the lead.
int PayloadBits(int octets) {
    return octets == 1 ? 7 : 6 * (octets - 1) + (7 - octets);
}

struct Sequence {
    std::size_t taken;
    std::optional<unsigned long> value;  // none for a flaw
    std::string flaw;
};

Sequence ReadSequence(const std::string& octets, std::size_t start) {
    std::string bits = Bits(octets[start]);
    if (bits[0] == '0') return {1, Number(bits), {}};
    const std::size_t ones = bits.find('0');
    if (ones == 1 || ones == 7 || ones == std::string::npos) {
        return {1, {}, Hex("ZBase::UTF8ToWideChar: Invalid octet 0x", Number(bits), 2)};
    }
    std::string payload = bits.substr(ones + 1);
    for (std::size_t i = 1; i < ones; ++i) {
        if (start + i == octets.size()) {
            return {i, {}, "ZBase::UTF8ToWideChar: Expect more continuation octet data."};
        }
        bits = Bits(octets[start + i]);
        if (bits.substr(0, 2) != "10") {
            return {i, {}, Hex("ZBase::UTF8ToWideChar: Invalid continuation octet 0x", Number(bits), 2)};
        }
        payload += bits.substr(2);
    }
    // Overlong is a value that fits into a shorter sequence, except for U+FFFD.
    const unsigned long value = Number(payload);
    if (value >> PayloadBits(static_cast<int>(ones) - 1) == 0 && value != 0xFFFD) {
        return {ones, {}, Hex("ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+", value, 4)};
    }
    const bool isCharacter =
        In(value, 0, 0xD7FF) || In(value, 0xE000, 0xFFFD) || In(value, 0x10000, 0x10FFFF);
    if (!isCharacter) {
        return {ones, {}, Hex("ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+", value, 4)};
    }
    return {ones, value, {}};
}

// The character of two surrogates, in either order: ten bits of each.
unsigned long Join(unsigned long first, unsigned long second) {
    return (first % 0x400) * 0x400 + second % 0x400 + 0x10000;
}

}  // namespace

std::string SlowUtf8(unsigned long value) {
    int octets = 1;
    while (value >> PayloadBits(octets) != 0) ++octets;
    if (octets == 1) return {static_cast<char>(value)};
    std::string bits;
    for (int bit = PayloadBits(octets) - 1; bit >= 0; --bit) bits += (value >> bit) % 2 == 0 ? '0' : '1';
    const std::size_t inLead = 7 - static_cast<std::size_t>(octets);
    const std::string mark = std::string(static_cast<std::size_t>(octets), '1') + '0';
    std::string text{static_cast<char>(Number(mark + bits.substr(0, inLead)))};
    for (std::size_t i = inLead; i < bits.size(); i += 6) {
        text += static_cast<char>(Number("10" + bits.substr(i, 6)));
    }
    return text;
}

Units SlowUtf16(unsigned long value) {
    if (value < 0x10000) return {static_cast<unsigned short>(value)};
    const unsigned long offset = value - 0x10000;
    return {static_cast<unsigned short>(0xD800 + offset / 0x400),
            static_cast<unsigned short>(0xDC00 + offset % 0x400)};
}

Outcome<Units> SlowUtf8ToWide(const std::string& octets, bool replace) {
    Units text;
    for (std::size_t i = 0; i < octets.size();) {
        const Sequence sequence = ReadSequence(octets, i);
        if (!sequence.value && !replace) return {{}, sequence.flaw};
        text += SlowUtf16(sequence.value.value_or(0xFFFD));
        i += sequence.taken;
    }
    return {text, {}};
}

Outcome<std::string> SlowWideToUtf8(const Units& units, bool replace) {
    const char* const bad = "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+";
    std::string text;
    std::optional<unsigned long> waiting;
    for (unsigned long unit : units) {
        if (unit >= 0xFFFE) {
            if (!replace) return {{}, Hex(bad, unit, 4)};
            unit = 0xFFFD;
        }
        const bool isSurrogate = In(unit, 0xD800, 0xDFFF);
        if (waiting && !isSurrogate) break;
        if (waiting) {
            text += SlowUtf8(Join(*waiting, unit));
            waiting.reset();
        } else if (isSurrogate) {
            waiting = unit;
        } else {
            text += SlowUtf8(unit);
        }
    }
    if (waiting) return {{}, Hex(bad, *waiting, 4)};
    return {text, {}};
}

Outcome<std::string> SlowUtf16ToUtf8(const Units& units) {
    const Units terminated = units + static_cast<unsigned short>(0);
    const auto failAt = [&terminated](std::size_t i) -> Outcome<std::string> {
        return {{}, Hex("ZBase::UTF16ToUTF8: Invalid UNICODE value U+", terminated[i], 4)};
    };
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        if (!In(units[i], 0xD800, 0xDFFF)) {
            text += SlowUtf8(units[i]);
            continue;
        }
        const bool atEnd = i + 1 == units.size();
        if (In(units[i], 0xDC00, 0xDFFF) || atEnd) return failAt(i + 1);
        if (!In(units[i + 1], 0xDC00, 0xDFFF)) return failAt(i + 2);
        text += SlowUtf8(Join(units[i], units[i + 1]));
        ++i;
    }
    return {text, {}};
}

}  // namespace test
