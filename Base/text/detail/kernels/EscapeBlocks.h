#pragma once

#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/UrlEscapes.h>

#include <cstddef>
#include <cstdint>

// Octets as text, a register at a time: percent-encoded, or as hexadecimal digits. `V` is the register of one
// kind of processor. What does not fill one is left to the plain kernel.

namespace ZBase::detail {

// For one translation unit, as all of a kind.
namespace {

// An octet is unreserved if the row of its low half has the bit of its high half; none of the high halves
// from 8 on has one.
struct UnreservedRows {
    alignas(16) unsigned char rows[16];
};

constexpr UnreservedRows MakeUnreservedRows() {
    UnreservedRows table{};
    for (unsigned int octet = 0; octet != 0x80; ++octet) {
        const unsigned int bit = IsUnreserved(static_cast<unsigned char>(octet)) ? 1u << (octet >> 4) : 0;
        table.rows[octet & 0xF] = static_cast<unsigned char>(table.rows[octet & 0xF] | bit);
    }
    return table;
}

[[maybe_unused]] constexpr UnreservedRows kUnreservedRows = MakeUnreservedRows();
[[maybe_unused]] alignas(16) constexpr unsigned char kBitOfHighHalf[16] = {1, 2, 4, 8, 16, 32, 64, 128};

// Of four quads of octets the first of each, and where its bit is set the second and third too.
struct EscapeRows {
    alignas(16) unsigned char rows[16][16];
};

constexpr EscapeRows MakeEscapeRows() {
    EscapeRows table{};
    for (unsigned int mask = 0; mask != 16; ++mask) {
        std::size_t used = 0;
        for (unsigned int octet = 0; octet != 16; ++octet) {
            if (octet % 4 == 0 || (octet % 4 != 3 && (mask >> octet / 4 & 1) != 0))
                table.rows[mask][used++] = static_cast<unsigned char>(octet);
        }
        while (used != 16) table.rows[mask][used++] = 0x80;  // picks a zero
    }
    return table;
}

[[maybe_unused]] constexpr EscapeRows kEscapeRows = MakeEscapeRows();

// Octets that may be written behind those of a block.
constexpr std::size_t kEscapeSpill = 12;

template <class V>
std::size_t CountReserved(const unsigned char* source, std::size_t length) {
    std::size_t reserved = 0;
    std::size_t done = 0;
    for (; length - done >= V::kOctets; done += V::kOctets)
        reserved += V::Count(V::Bits(V::Reserved(V::Load(source + done))));
    return reserved + PlainKernels()->countReserved(source + done, length - done);
}

// Each octet gives one at least, so what is spilled is written later as long as so many follow.
template <class V>
void EscapeReserved(const unsigned char* source, std::size_t length, char* out) {
    std::size_t done = 0;
    for (; length - done >= V::kOctets + kEscapeSpill; done += V::kOctets) {
        const typename V::Octets octets = V::Load(source + done);
        const std::uint64_t reserved = V::Bits(V::Reserved(octets));
        if (reserved == 0) {
            V::StoreOctets(out, octets);
            out += V::kOctets;
        } else {
            out = V::PutEscaped(octets, reserved, out);
        }
    }
    PlainKernels()->escapeReserved(source + done, length - done, out);
}

template <class V>
void PutDigits(const unsigned char* source, std::size_t length, unsigned short* out) {
    std::size_t done = 0;
    for (; length - done >= 16; done += 16) V::PutDigits16(source + done, out + 2 * done);
    PlainKernels()->putDigits(source + done, length - done, out + 2 * done);
}

}  // namespace

}  // namespace ZBase::detail
