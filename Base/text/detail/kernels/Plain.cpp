// What any processor can do: eight octets in one register. Of the conversions only ASCII is taken.

#include <Base/text/detail/AsciiRuns.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/UrlEscapes.h>

#include <algorithm>
#include <cstring>

namespace ZBase::detail {

namespace {

std::size_t WidenAscii(const unsigned char* source, std::size_t length, unsigned short* out) {
    return WidenAsciiRun<false>(source, length, out);
}

std::size_t NarrowAscii(const unsigned short* source, std::size_t length, char* out) {
    return NarrowAsciiRun<false>(source, length, out);
}

Progress DecodeUtf8(const unsigned char* source, std::size_t length, unsigned short* out) {
    const std::size_t done = WidenAscii(source, length, out);
    return {done, done};
}

Progress EncodeUtf8(const unsigned short* source, std::size_t units, char* out) {
    const std::size_t done = NarrowAscii(source, units, out);
    return {done, done};
}

std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    std::size_t units = 0;
    while (units != length && source[units] != 0) ++units;
    return units;
}

std::size_t CountReserved(const unsigned char* source, std::size_t length) {
    // Four sums that do not wait for each other.
    std::size_t sizes[4] = {};
    std::size_t i = 0;
    for (; length - i >= 4; i += 4) {
        for (std::size_t lane = 0; lane != 4; ++lane) sizes[lane] += kUrlEscapes.sizes[source[i + lane]];
    }
    for (; i != length; ++i) sizes[0] += kUrlEscapes.sizes[source[i]];
    return (sizes[0] + sizes[1] + sizes[2] + sizes[3] - length) / 2;
}

void EscapeReserved(const unsigned char* source, std::size_t length, char* out) {
    // Four octets at once as long as three characters follow, whose octets will stand where the rest went.
    std::size_t left = length;
    for (; left > 3; --left) {
        const unsigned char octet = *source++;
        std::memcpy(out, kUrlEscapes.texts[octet], 4);
        out += kUrlEscapes.sizes[octet];
    }
    for (; left != 0; --left) {
        const unsigned char octet = *source++;
        out = std::copy_n(kUrlEscapes.texts[octet], kUrlEscapes.sizes[octet], out);
    }
}

// The two digits of each octet.
struct DigitPairs {
    unsigned short rows[256][2];
};

constexpr DigitPairs MakeDigitPairs() {
    DigitPairs pairs{};
    for (unsigned int octet = 0; octet != 256; ++octet) {
        pairs.rows[octet][0] = static_cast<unsigned char>(kUpperDigits[octet >> 4]);
        pairs.rows[octet][1] = static_cast<unsigned char>(kUpperDigits[octet & 0xF]);
    }
    return pairs;
}

constexpr DigitPairs kPairs = MakeDigitPairs();

void PutDigits(const unsigned char* source, std::size_t length, unsigned short* out) {
    for (std::size_t i = 0; i != length; ++i, out += 2) std::memcpy(out, kPairs.rows[source[i]], 4);
}

constexpr UrlEscapes MakeEscapes() {
    UrlEscapes escapes{};
    for (unsigned int octet = 0; octet != 256; ++octet) {
        char* const text = escapes.texts[octet];
        if (IsUnreserved(static_cast<unsigned char>(octet))) {
            text[0] = static_cast<char>(octet);
            escapes.sizes[octet] = 1;
        } else {
            text[0] = '%';
            text[1] = kUpperDigits[octet >> 4];
            text[2] = kUpperDigits[octet & 0xF];
            escapes.sizes[octet] = 3;
        }
    }
    return escapes;
}

constexpr TextKernels kKernels{"plain",    DecodeUtf8,    EncodeUtf8,     WidenAscii, NarrowAscii,
                               CountUnits, CountReserved, EscapeReserved, PutDigits};

}  // namespace

constinit const UrlEscapes kUrlEscapes = MakeEscapes();

const TextKernels* PlainKernels() {
    return &kKernels;
}

}  // namespace ZBase::detail
