#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace ZBase::detail {

// Runs of ASCII in plain C++: eight elements a step, of which the last is written as a whole where the
// elements after the run may be written. Short runs between flaws cost no call and no loop over the rest.
// Integer arithmetic, since compilers turn a loop over octets into single lanes of a register.

inline constexpr std::size_t kAsciiStep = 8;
inline constexpr std::uint64_t kHighOctets = 0x8080808080808080;
inline constexpr std::uint64_t kHighUnits = 0xFF80FF80FF80FF80;

/// The number of elements of `bits` bits, in memory order, before the first with a mark.
inline std::size_t UnmarkedInFront(std::uint64_t marks, unsigned int bits) {
    const int zeros =
        std::endian::native == std::endian::little ? std::countr_zero(marks) : std::countl_zero(marks);
    return static_cast<unsigned int>(zeros) / bits;
}

/// Four octets as four units, both in memory order.
inline std::uint64_t WidenFour(std::uint32_t octets) {
    std::uint64_t units = octets;
    units = (units | units << 16) & 0x0000FFFF0000FFFF;
    return (units | units << 8) & 0x00FF00FF00FF00FF;
}

/// The low octets of four units.
inline std::uint32_t NarrowFour(std::uint64_t units) {
    units &= 0x00FF00FF00FF00FF;
    units = (units | units >> 8) & 0x0000FFFF0000FFFF;
    return static_cast<std::uint32_t>(units | units >> 16);
}

/// Widens the leading ASCII octets. Returns their number. `MaySpill`: up to a step of units after them,
/// within `length`, may be written.
template <bool MaySpill>
std::size_t WidenAsciiRun(const unsigned char* source, std::size_t length, unsigned short* out) {
    std::size_t done = 0;
    for (; length - done >= kAsciiStep; done += kAsciiStep) {
        std::uint32_t octets[2];
        std::memcpy(octets, source + done, sizeof octets);
        std::uint64_t all;
        std::memcpy(&all, source + done, sizeof all);
        if (!MaySpill && (all & kHighOctets) != 0) break;
        const std::uint64_t units[2] = {WidenFour(octets[0]), WidenFour(octets[1])};
        std::memcpy(out + done, units, sizeof units);
        if ((all & kHighOctets) != 0) return done + UnmarkedInFront(all & kHighOctets, 8);
    }
    for (; done != length && source[done] < 0x80; ++done) out[done] = source[done];
    return done;
}

/// Narrows the leading ASCII units, likewise.
template <bool MaySpill>
std::size_t NarrowAsciiRun(const unsigned short* source, std::size_t length, char* out) {
    std::size_t done = 0;
    for (; length - done >= kAsciiStep; done += kAsciiStep) {
        std::uint64_t units[2];
        std::memcpy(units, source + done, sizeof units);
        const std::uint64_t marks[2] = {units[0] & kHighUnits, units[1] & kHighUnits};
        if (!MaySpill && (marks[0] | marks[1]) != 0) break;
        const std::uint32_t octets[2] = {NarrowFour(units[0]), NarrowFour(units[1])};
        std::memcpy(out + done, octets, sizeof octets);
        if (marks[0] != 0) return done + UnmarkedInFront(marks[0], 16);
        if (marks[1] != 0) return done + kAsciiStep / 2 + UnmarkedInFront(marks[1], 16);
    }
    for (; done != length && source[done] < 0x80; ++done) out[done] = static_cast<char>(source[done]);
    return done;
}

}  // namespace ZBase::detail
