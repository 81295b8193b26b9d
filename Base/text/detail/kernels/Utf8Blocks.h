#pragma once

#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/kernels/EscapeBlocks.h>

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

// UTF-8 and units, a block of a register's width at a time. `V` is the register of one kind of processor.
//
// Decoding. For each octet a unit is computed as if a character began there, from it and the next two octets;
// then the units of the octets that do begin one are compacted. A unit is 64 * x + y + 256 * w, with
//
//                             x               y                              w
//     0xxxxxxx                0               the octet                      0
//     110xxxxx                its payload     that of the second             0
//     1110xxxx                of the second   of the third                   of the first, in the high nibble
//     11110xxx                3               of the second and third        0xD7 + of the first
//     the second of four      of the third    of the fourth                  0xDC
//
// so the third and fourth line of four octets are its surrogates; 0xD7C0 is 0xD800 less 0x10000 >> 10. Blocks
// are adjacent, so a character may extend into the next one, where it was checked already.
//
// Encoding. For each unit the octets are computed in lanes of a fixed width and the used ones are compacted.
// Each surrogate of a pair gives two of its four octets.
//
// The last block ends where the text does, so some of it was converted before; it is again, to the same
// place. A text shorter than a block is left to the kind with the next smaller one. A kind that reads and
// writes any part of a register (`kTakesParts`) takes the rest of a text, or a short one, as a part of a
// block instead: the lanes behind the text are zeros.

// These functions read beside an object within its page, which a sanitizer reports.
#define ZBASE_READS_BESIDE __attribute__((no_sanitize("address"), no_sanitize("thread")))

namespace ZBase::detail {

// Everything here is for one translation unit, which is compiled for one kind of processor; no function may
// be shared with another.
namespace {

// The four nibbles of 16 bits, each in an octet of its own.
inline std::uint64_t SpreadNibbles(std::uint64_t bits) {
    bits = (bits | bits << 8) & 0x00FF00FF;
    return (bits | bits << 4) & 0x0F0F0F0F;
}

template <class V>
class Utf8Decoding {
public:
    static Progress Run(const unsigned char* source, std::size_t length, unsigned short* out) {
        if constexpr (V::kTakesParts) {
            return RunInParts(source, length, out);
        } else {
            if (length < kBlock) return V::DecodeShorter(source, length, out);
            return Utf8Decoding(source, length, out).Decode();
        }
    }

private:
    using Octets = typename V::Octets;
    using Lanes = typename V::Lanes;

    static constexpr std::size_t kBlock = V::kOctets;
    static constexpr std::size_t kAhead = 8;  // octets that must follow a block; three are read
    static constexpr std::size_t kSpill = 8;  // units that may be written after those of a block
    static constexpr std::uint64_t kAll = ~std::uint64_t{0} >> (64 - kBlock);

    Utf8Decoding(const unsigned char* source, std::size_t length, unsigned short* out)
        : mpSource(source), mpEnd(source + length), mpNext(source), mpOut(out), mpPut(out) {}

    // A text of ASCII only, or its front, needs nothing to be remembered.
    static Progress RunInParts(const unsigned char* source, std::size_t length, unsigned short* out) {
        const std::size_t ascii = V::WidenBlocks(source, length, out);
        const std::size_t rest = length - ascii;
        if (rest == 0) return {length, length};
        if (rest < kBlock) {
            const std::uint64_t present = V::FirstBits(rest);
            const Octets octets = V::LoadPart(source + ascii, present);
            if (V::Bits(V::AtLeast(octets, 0x80)) == 0) {
                V::WidenPart(octets, present, out + ascii);
                return {length, length};
            }
        }
        const Progress done = Utf8Decoding(source + ascii, rest, out + ascii).Decode();
        return {ascii + done.read, ascii + done.written};
    }

    Progress Decode() {
        while (Left() >= kBlock + kAhead) {
            if (mContinued == 0 && V::Bits(V::AtLeast(V::Load(mpNext), 0x80)) == 0) {
                const std::size_t ascii = V::WidenBlocks(mpNext, Left(), mpPut);
                mpNext += ascii;
                mpPut += ascii;
                mpSpilled = nullptr;
            } else if (Take<false>(mpNext)) {
                mpNext += kBlock;
            } else {
                return StopAtFlaw();
            }
        }
        return Left() == 0 ? Stop() : TakeLast();
    }

    std::size_t Left() const { return static_cast<std::size_t>(mpEnd - mpNext); }
    std::size_t Written() const { return static_cast<std::size_t>(mpPut - mpOut); }

    // Whether the octets after a block that `next` has a bit for are continuation octets.
    static bool Continues(const unsigned char* behind, std::uint64_t next) {
        constexpr std::uint32_t marks[8] = {0, 0xC0, 0, 0xC0C0, 0, 0, 0, 0xC0C0C0};
        std::uint32_t octets;
        std::memcpy(&octets, behind, sizeof octets);
        return ((octets ^ 0x808080) & marks[next]) == 0;
    }

    static Octets Payload(Octets octets) { return V::And(octets, V::Fill(0x3F)); }

    // The octets `Distance` after those at `block`; zeros after the end of the text.
    template <bool IsLast, int Distance>
    Octets LoadBehind(const unsigned char* block) const {
        if constexpr (IsLast && V::kTakesParts)
            return V::LoadPart(block + Distance, Present<IsLast>() >> Distance);
        if constexpr (IsLast && Distance != 0) return V::template LoadUpTo<Distance>(block);
        return V::Load(block + Distance);
    }

    // A bit for each octet of the block.
    template <bool IsLast>
    std::uint64_t Present() const {
        if constexpr (IsLast && V::kTakesParts) return V::FirstBits(Left());
        return kAll;
    }

    // The octets at the start of a block of which the first ones were decoded before that belong to the
    // character in front, a bit for each.
    std::uint64_t Continued(std::uint64_t before, std::uint64_t continuations, std::size_t count) const {
        const std::uint64_t seen = continuations & before;
        const std::uint64_t run = seen & ~(seen + 1);
        return run == before ? mContinued << count | before : run;
    }

    // The block whose octets before `mpNext` were decoded before. False, with nothing changed, if it has a
    // flaw.
    template <bool IsLast>
    bool Take(const unsigned char* block) {
        const auto count = static_cast<std::size_t>(mpNext - block);
        const std::uint64_t before = IsLast ? (std::uint64_t{1} << count) - 1 : 0;
        const Octets first = LoadBehind<IsLast, 0>(block);
        const Lanes isHigh = V::AtLeast(first, 0x80);
        const std::uint64_t leads = V::Bits(V::AtLeast(first, 0xC0));
        const std::uint64_t longs = V::Bits(V::AtLeast(first, 0xE0));
        const std::uint64_t continuations = V::Bits(isHigh) & ~leads;
        const std::uint64_t continued = Continued(before, continuations, count);
        const bool isLow = count == 0 ? mLow : block != mpSource && block[-1] >= 0xF0;
        if (longs != 0 || isLow) {
            return TakeLong<IsLast>(block, before, leads, longs, continuations, continued, isLow);
        }
        const std::uint64_t next = leads >> (kBlock - 1);
        const bool isOverlong = V::Any(V::Equal(V::And(first, V::Fill(0xFE)), V::Fill(0xC0)));
        if (isOverlong || ((leads << 1 | continued) & kAll) != continuations) return false;
        if (IsLast ? next != 0 : !Continues(block + kBlock, next)) return false;
        const Octets second = LoadBehind<IsLast, 1>(block);
        const Octets x = V::Keep(isHigh, V::And(first, V::Fill(0x1F)));
        const Octets y = V::Select(isHigh, Payload(second), first);
        Put<IsLast>(before, ~continuations & Present<IsLast>(),
                    [&](auto part, std::uint64_t kept, unsigned short* put) {
                        V::template PutUnits<part.value>(x, y, kept, put);
                    });
        mContinued = next;
        mLow = false;
        return true;
    }

    template <bool IsLast>
    bool TakeLong(const unsigned char* block, std::uint64_t before, std::uint64_t leads, std::uint64_t longs,
                  std::uint64_t continuations, std::uint64_t continued, bool startsLow) {
        const Octets first = LoadBehind<IsLast, 0>(block);
        const Octets second = LoadBehind<IsLast, 1>(block);
        const Octets third = LoadBehind<IsLast, 2>(block);
        const Lanes isHigh = V::AtLeast(first, 0x80);
        const Lanes isLong = V::AtLeast(first, 0xE0);
        const Lanes isFour = V::AtLeast(first, 0xF0);
        const std::uint64_t fours = V::Bits(isFour);
        const std::uint64_t expected = (continued | leads << 1 | longs << 2 | fours << 3) & kAll;
        const std::uint64_t next = leads >> (kBlock - 1) | longs >> (kBlock - 2) | fours >> (kBlock - 3);
        if (expected != continuations || V::Any(V::Flaws(first, second, third))) return false;
        if (IsLast ? next != 0 : !Continues(block + kBlock, next)) return false;

        const Octets secondPayload = Payload(second);
        const Octets thirdPayload = Payload(third);
        Octets x = V::Keep(isHigh, V::Select(isLong, secondPayload, V::And(first, V::Fill(0x1F))));
        Octets y = V::Select(isHigh, V::Select(isLong, thirdPayload, secondPayload), first);
        Octets w = V::Keep(isLong, V::And(V::template Left<4>(first), V::Fill(0xF0)));
        std::uint64_t lows = 0;
        if (fours != 0 || startsLow) {
            lows = (fours << 1 | (startsLow ? 1 : 0)) & kAll;
            const Lanes isLow = V::FromBits(lows);
            const Octets middle = V::And(V::template Right<4>(third), V::Fill(0x03));
            x = V::Select(isFour, V::Fill(0x03), x);
            y = V::Select(isFour, V::Or(V::template Left<2>(secondPayload), middle), y);
            w = V::Select(isFour, V::Add(V::And(first, V::Fill(0x07)), V::Fill(0xD7)), w);
            x = V::Select(isLow, V::And(second, V::Fill(0x0F)), x);
            y = V::Select(isLow, thirdPayload, y);
            w = V::Select(isLow, V::Fill(0xDC), w);
        }
        Put<IsLast>(before, (~continuations & Present<IsLast>()) | lows,
                    [&](auto part, std::uint64_t kept, unsigned short* put) {
                        V::template PutUnits<part.value>(x, y, w, kept, put);
                    });
        mContinued = next;
        mLow = fours >> (kBlock - 1) != 0;
        return true;
    }

    // Calls `put(isPart, kept, place)` for the units of a block. What that spills behind them is remembered
    // before; a part spills nothing.
    template <bool IsLast, class PutUnits>
    void Put(std::uint64_t before, std::uint64_t kept, PutUnits put) {
        const std::size_t count = V::Count(kept);
        const std::size_t again = IsLast ? V::Count(kept & before) : 0;
        unsigned short* const end = mpPut + (count - again);
        if (IsLast && V::kTakesParts &&
            Written() + count + kSpill > static_cast<std::size_t>(mpEnd - mpSource)) {
            put(std::true_type(), kept, mpPut);
        } else if (IsLast && !V::kTakesParts &&
                   Written() + Left() + kSpill > static_cast<std::size_t>(mpEnd - mpSource)) {
            unsigned short units[kBlock + kSpill];
            put(std::false_type(), kept, units);
            std::memcpy(mpPut, units + again, (count - again) * sizeof *units);
            mpSpilled = nullptr;
        } else {
            std::memcpy(mBehind, end, sizeof mBehind);
            put(std::false_type(), kept, mpPut - again);
            mpSpilled = end;
        }
        mpPut = end;
    }

    void TakeBackSpill() {
        if (mpSpilled != nullptr) std::memcpy(mpSpilled, mBehind, sizeof mBehind);
        mpSpilled = nullptr;
    }

    // After the last converted block; completes the character that extends beyond it.
    Progress Stop() {
        TakeBackSpill();
        if (mLow) {
            *mpPut++ = static_cast<unsigned short>(0xDC00 | (mpNext[1] & 0x0F) << 6 | (mpNext[2] & 0x3F));
        }
        for (std::uint64_t octets = mContinued; octets != 0; octets >>= 1) ++mpNext;
        return {static_cast<std::size_t>(mpNext - mpSource), Written()};
    }

    // In front of a block with a flaw, or behind the ASCII that it starts with.
    Progress StopAtFlaw() {
        Progress done = Stop();
        if constexpr (V::kTakesParts) {
            const Octets octets = V::Load(mpNext);
            const std::uint64_t highs = V::Bits(V::AtLeast(octets, 0x80));
            const auto ascii = static_cast<std::size_t>(std::countr_zero(highs));
            V::WidenPart(octets, V::FirstBits(ascii), mpPut);
            done = {done.read + ascii, done.written + ascii};
        }
        return done;
    }

    Progress TakeLast() {
        if (Left() <= kBlock) {
            TakeBackSpill();
            if constexpr (V::kTakesParts) {
                TakePart();
                return Stop();
            }
            const unsigned char* const block = mpEnd - kBlock;
            if (mContinued == 0 && V::Bits(V::AtLeast(V::Load(block), 0x80)) == 0) {
                V::WidenBlocks(block, kBlock, mpPut - (mpNext - block));
                mpPut += Left();
                mpNext = mpEnd;
            } else if (Take<true>(block)) {
                mpNext = mpEnd;
            }
            return Stop();
        }
        const Progress done = Stop();
        const Progress last = V::DecodeShorter(mpNext, Left(), mpPut);
        return {done.read + last.read, done.written + last.written};
    }

    void TakePart() {
        const std::uint64_t present = Present<true>();
        const Octets octets = LoadBehind<true, 0>(mpNext);
        if (mContinued == 0 && V::Bits(V::AtLeast(octets, 0x80)) == 0) {
            V::WidenPart(octets, present, mpPut);
            mpPut += Left();
            mpNext = mpEnd;
        } else if (Take<true>(mpNext)) {
            mpNext = mpEnd;
        }
    }

    const unsigned char* const mpSource;
    const unsigned char* const mpEnd;
    const unsigned char* mpNext;
    unsigned short* const mpOut;
    unsigned short* mpPut;
    std::uint64_t mContinued = 0;         // the octets at `mpNext` that belong to the last character
    bool mLow = false;                    // whether the first of them is the second of four
    unsigned short* mpSpilled = nullptr;  // where units were spilled
    unsigned short mBehind[kSpill]{};     // their old values
};

template <class V>
class Utf8Encoding {
public:
    static Progress Run(const unsigned short* source, std::size_t units, char* out) {
        if (!V::kTakesParts && units < kBlock) return V::EncodeShorter(source, units, out);
        Utf8Encoding encoding(source, units, out);
        while (encoding.Left() > kBlock) {
            if (!encoding.mOpen && !V::AnyUnits(V::UnitsAtLeast(V::LoadUnits(encoding.mpNext), 0x80))) {
                const std::size_t ascii = V::NarrowBlocks(encoding.mpNext, encoding.Left(), encoding.mpPut);
                encoding.mpNext += ascii;
                encoding.mpPut += ascii;
            } else if (encoding.template Take<false>(encoding.mpNext)) {
                encoding.mpNext += kBlock;
            } else {
                return encoding.Stop();
            }
        }
        if (encoding.Left() != 0) encoding.TakeLast();
        return encoding.Stop();
    }

private:
    using Units = typename V::Units;
    using Lanes = typename V::UnitLanes;

    static constexpr std::size_t kBlock = V::kOctets / 2;
    static constexpr std::uint64_t kAll = ~std::uint64_t{0} >> (64 - kBlock);

    Utf8Encoding(const unsigned short* source, std::size_t units, char* out)
        : mpSource(source), mpEnd(source + units), mpNext(source), mpOut(out), mpPut(out) {}

    std::size_t Left() const { return static_cast<std::size_t>(mpEnd - mpNext); }

    static bool IsOpening(unsigned int unit) { return (unit & 0xFC00) == 0xD800; }
    static bool IsClosing(unsigned int unit) { return (unit & 0xFC00) == 0xDC00; }

    // A bit for each unit of the block.
    template <bool IsLast>
    std::uint64_t Present() const {
        if constexpr (IsLast && V::kTakesParts) return V::FirstBits(Left());
        return kAll;
    }

    template <bool IsLast>
    Units LoadBlock(const unsigned short* block) const {
        if constexpr (IsLast && V::kTakesParts) return V::LoadUnitsPart(block, Present<IsLast>());
        return V::LoadUnits(block);
    }

    // The units one place further in front. There may be nothing in front of the text.
    template <bool IsLast>
    Units LoadBefore(const unsigned short* block) const {
        if constexpr (IsLast && V::kTakesParts) {
            return V::LoadUnitsPart(block - 1,
                                    Present<IsLast>() & (block == mpSource ? ~std::uint64_t{1} : kAll));
        }
        if (block != mpSource) return V::LoadUnits(block - 1);
        unsigned short units[kBlock];
        units[0] = 0;
        std::memcpy(units + 1, block, sizeof units - sizeof *units);
        return V::LoadUnits(units);
    }

    // The block whose units before `mpNext` were encoded before. False, with nothing changed, if it has a
    // flaw.
    template <bool IsLast>
    bool Take(const unsigned short* block) {
        const auto count = static_cast<std::size_t>(mpNext - block);
        const std::uint64_t before = (std::uint64_t{1} << count) - 1;
        const bool startsOpen = count == 0 ? mOpen : block != mpSource && IsOpening(block[-1]);
        const Units unit = LoadBlock<IsLast>(block);
        const Lanes isHigh = V::UnitsAtLeast(unit, 0x80);
        const Lanes isThree = V::UnitsAtLeast(unit, 0x800);
        const std::uint64_t highs = V::UnitBits(isHigh);
        std::uint64_t threes = V::UnitBits(isThree);
        Units last = V::SelectUnits(
            isHigh, V::OrUnits(V::AndUnits(unit, V::FillUnits(0x3F)), V::FillUnits(0x80)), unit);
        char* const put = mpPut - count - V::Count(highs & before);
        if (threes == 0 && !startsOpen) {
            const Units lead = V::OrUnits(V::template RightUnits<6>(unit), V::FillUnits(0xC0));
            const Units pairs = V::OrUnits(lead, V::template LeftUnits<8>(last));
            if constexpr (IsLast && V::kTakesParts) {
                mpPut = V::PutPairsPart(pairs, highs, Present<IsLast>(), put);
            } else {
                mpPut = V::PutPairs(pairs, highs, put);
            }
            mOpen = false;
            return true;
        }
        if (V::AnyUnits(V::UnitsAtLeast(unit, 0xFFFE))) return false;
        const Units middle = V::AndUnits(V::template LeftUnits<2>(unit), V::FillUnits(0x3F00));
        const Units marks = V::SelectUnits(isThree, V::FillUnits(0x80E0), V::FillUnits(0xC000));
        Units front = V::OrUnits(V::OrUnits(V::template RightUnits<12>(unit), middle), marks);
        const std::uint64_t surrogates =
            V::UnitBits(V::EqualUnits(V::AndUnits(unit, V::FillUnits(0xF800)), V::FillUnits(0xD800)));
        bool staysOpen = false;
        if (surrogates != 0 || startsOpen) {
            const bool mayStayOpen = !IsLast && IsClosing(block[IsLast ? 0 : kBlock]);
            if (!PairsAreWhole(unit, surrogates, startsOpen, mayStayOpen, staysOpen)) return false;
            PutPairsInto(front, last, unit, LoadBefore<IsLast>(block));
            threes &= ~surrogates;
        }
        if constexpr (IsLast && V::kTakesParts) {
            mpPut = V::PutQuadsPart(front, last, highs, threes, Present<IsLast>(), put);
        } else {
            mpPut = V::PutQuads(front, last, highs, threes, put - V::Count(threes & before));
        }
        mOpen = staysOpen;
        return true;
    }

    // Whether each surrogate is part of a pair in its proper order.
    static bool PairsAreWhole(Units unit, std::uint64_t surrogates, bool startsOpen, bool mayStayOpen,
                              bool& staysOpen) {
        const std::uint64_t opening =
            V::UnitBits(V::EqualUnits(V::AndUnits(unit, V::FillUnits(0xFC00)), V::FillUnits(0xD800)));
        staysOpen = opening >> (kBlock - 1) != 0;
        const std::uint64_t closing = (opening << 1 | (startsOpen ? 1 : 0)) & kAll;
        return closing == (surrogates & ~opening) && (!staysOpen || mayStayOpen);
    }

    // Puts the octets of surrogates into their lanes.
    static void PutPairsInto(Units& front, Units& last, Units unit, Units before) {
        const Units kind = V::AndUnits(unit, V::FillUnits(0xFC00));
        const Lanes isOpening = V::EqualUnits(kind, V::FillUnits(0xD800));
        const Lanes isClosing = V::EqualUnits(kind, V::FillUnits(0xDC00));
        // The value is less 0x10000.
        const Units value = V::AddUnits(V::AndUnits(unit, V::FillUnits(0x3FF)), V::FillUnits(0x40));
        const Units openingFront = V::OrUnits(V::AndUnits(value, V::FillUnits(0x700)), V::FillUnits(0xF000));
        const Units openingLast =
            V::OrUnits(V::AndUnits(V::template RightUnits<2>(value), V::FillUnits(0x3F)), V::FillUnits(0x80));
        const Units closingFront = V::OrUnits(
            V::OrUnits(V::template LeftUnits<12>(V::AndUnits(before, V::FillUnits(3))), V::FillUnits(0x8000)),
            V::AndUnits(V::template LeftUnits<2>(unit), V::FillUnits(0x0F00)));
        front = V::SelectUnits(isOpening, openingFront, V::SelectUnits(isClosing, closingFront, front));
        last = V::SelectUnits(isOpening, openingLast, last);
    }

    void TakeLast() {
        if constexpr (V::kTakesParts) {
            const Units units = LoadBlock<true>(mpNext);
            if (!mOpen && !V::AnyUnits(V::UnitsAtLeast(units, 0x80))) {
                V::NarrowPart(units, Present<true>(), mpPut);
                mpPut += Left();
                mpNext = mpEnd;
                return;
            }
        }
        if (Take<true>(V::kTakesParts ? mpNext : mpEnd - kBlock)) mpNext = mpEnd;
    }

    // Behind the last block that was taken; completes the pair that reaches beyond it.
    Progress Stop() {
        if (mOpen) {
            *mpPut++ = static_cast<char>(0x80 | (mpNext[-1] & 3) << 4 | (mpNext[0] >> 6 & 0x0F));
            *mpPut++ = static_cast<char>(0x80 | (mpNext[0] & 0x3F));
            ++mpNext;
        }
        return {static_cast<std::size_t>(mpNext - mpSource), static_cast<std::size_t>(mpPut - mpOut)};
    }

    const unsigned short* const mpSource;
    const unsigned short* const mpEnd;
    const unsigned short* mpNext;
    char* const mpOut;
    char* mpPut;
    bool mOpen = false;  // the last unit before `mpNext` was a high surrogate
};

// Whole registers first, the rest one by one.
template <class V>
std::size_t WidenAscii(const unsigned char* source, std::size_t length, unsigned short* out) {
    std::size_t done = V::WidenBlocks(source, length, out);
    for (; done != length && source[done] < 0x80; ++done) out[done] = source[done];
    return done;
}

template <class V>
std::size_t NarrowAscii(const unsigned short* source, std::size_t length, char* out) {
    std::size_t done = V::NarrowBlocks(source, length, out);
    for (; done != length && source[done] < 0x80; ++done) out[done] = static_cast<char>(source[done]);
    return done;
}

// By whole registers at aligned addresses: what they read beside the text is in the same page.
template <class V>
ZBASE_READS_BESIDE std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    const std::size_t before = reinterpret_cast<std::uintptr_t>(source) % V::kOctets;
    if (before % sizeof *source != 0) return PlainKernels()->countUnits(source, length);
    const unsigned char* block = reinterpret_cast<const unsigned char*>(source) - before;
    std::uint64_t zeros = V::ZeroUnits(block) >> before;  // a bit for each octet
    std::size_t octets = 0;                               // of the text, in the blocks before this one
    for (std::size_t next = V::kOctets - before; zeros == 0; next += V::kOctets) {
        if (next / sizeof *source >= length) return length;
        octets = next;
        block += V::kOctets;
        zeros = V::ZeroUnits(block);
    }
    const std::size_t units = (octets + static_cast<std::size_t>(__builtin_ctzll(zeros))) / sizeof *source;
    return units < length ? units : length;
}

template <class V>
constexpr TextKernels KernelsOf(const char* name) {
    return {name,          Utf8Decoding<V>::Run, Utf8Encoding<V>::Run, WidenAscii<V>, NarrowAscii<V>,
            CountUnits<V>, CountReserved<V>,     EscapeReserved<V>,    PutDigits<V>};
}

}  // namespace

}  // namespace ZBase::detail
