#include <Base/text/detail/Digits.h>
#include <Base/text/detail/TextKernels.h>

#if defined(ZBASE_ARM64_KERNELS)

#include <Base/text/detail/kernels/ShuffleTables.h>
#include <Base/text/detail/kernels/Utf8Blocks.h>

#include <arm_neon.h>

namespace ZBase::detail {

namespace {

// Every ARM64 processor has it. There is no instruction that gathers a bit of each lane; TBL gives zero for
// an index beyond its table, so the rows of the shuffle tables serve as they are.
struct Neon {
    static constexpr std::size_t kOctets = 16;
    static constexpr bool kTakesParts = false;
    using Octets = uint8x16_t;
    using Lanes = uint8x16_t;
    using Units = uint16x8_t;
    using UnitLanes = uint16x8_t;

    static Progress DecodeShorter(const unsigned char*, std::size_t, unsigned short*) { return {0, 0}; }
    static Progress EncodeShorter(const unsigned short*, std::size_t, char*) { return {0, 0}; }

    static Octets Load(const unsigned char* source) { return vld1q_u8(source); }
    // From `Distance` octets behind `block` to its end, then zeros.
    template <int Distance>
    static Octets LoadUpTo(const unsigned char* block) {
        return vextq_u8(Load(block), vdupq_n_u8(0), Distance);
    }
    static Octets Fill(int octet) { return vdupq_n_u8(static_cast<std::uint8_t>(octet)); }
    static Octets And(Octets a, Octets b) { return vandq_u8(a, b); }
    static Octets Or(Octets a, Octets b) { return vorrq_u8(a, b); }
    static Octets Add(Octets a, Octets b) { return vaddq_u8(a, b); }
    template <int Bits>
    static Octets Left(Octets a) {
        return vshlq_n_u8(a, Bits);
    }
    template <int Bits>
    static Octets Right(Octets a) {
        return vshrq_n_u8(a, Bits);
    }
    static Lanes AtLeast(Octets a, int octet) { return vcgeq_u8(a, Fill(octet)); }
    static Lanes Equal(Octets a, Octets b) { return vceqq_u8(a, b); }
    static std::uint64_t Bits(Lanes lanes) {
        const uint8x16_t bits = vandq_u8(lanes, BitOfLane());
        const uint8x16_t fours = vpaddq_u8(vpaddq_u8(bits, bits), vpaddq_u8(bits, bits));
        return vgetq_lane_u16(vreinterpretq_u16_u8(vpaddq_u8(fours, fours)), 0);
    }
    static bool Any(Lanes lanes) { return vmaxvq_u8(lanes) != 0; }
    static Lanes FromBits(std::uint64_t bits) {
        const auto low = static_cast<std::uint8_t>(bits);
        const auto high = static_cast<std::uint8_t>(bits >> 8);
        return vtstq_u8(vcombine_u8(vdup_n_u8(low), vdup_n_u8(high)), BitOfLane());
    }
    static Octets Select(Lanes lanes, Octets a, Octets b) { return vbslq_u8(lanes, a, b); }
    static Octets Keep(Lanes lanes, Octets a) { return vandq_u8(lanes, a); }

    // What is wrong about two octets, a bit for each reason: by the halves of the first, by the second.
    static Lanes Flaws(Octets first, Octets second, Octets third) {
        constexpr unsigned char isOverlong2 = 1, isOverlong3 = 2, isSurrogate = 4, isOverlong4 = 8,
                                isLarge = 16, isLead = 32, always = isOverlong2 | isLead;
        static constexpr unsigned char byHigh[16] = {0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     0,
                                                     isOverlong2,
                                                     0,
                                                     isOverlong3 | isSurrogate,
                                                     isOverlong4 | isLarge | isLead};
        static constexpr unsigned char byLow[16] = {isOverlong2 | isOverlong3 | isOverlong4,
                                                    isOverlong2,
                                                    0,
                                                    0,
                                                    isLarge,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead,
                                                    isLead | isSurrogate,
                                                    isLead,
                                                    isLead};
        static constexpr unsigned char bySecond[16] = {always,
                                                       always,
                                                       always,
                                                       always,
                                                       always,
                                                       always,
                                                       always,
                                                       always,
                                                       always | isOverlong3 | isOverlong4,
                                                       always | isOverlong3 | isLarge,
                                                       always | isSurrogate | isLarge,
                                                       always | isSurrogate | isLarge,
                                                       always,
                                                       always,
                                                       always,
                                                       always};
        const uint8x16_t wrong = vandq_u8(vqtbl1q_u8(Load(byHigh), Right<4>(first)),
                                          vqtbl1q_u8(Load(byLow), And(first, Fill(0x0F))));
        const uint8x16_t flaws = vtstq_u8(wrong, vqtbl1q_u8(Load(bySecond), Right<4>(second)));
        // U+FFFE and U+FFFF.
        const uint8x16_t last = And(Equal(first, Fill(0xEF)), Equal(second, Fill(0xBF)));
        return Or(flaws, And(last, AtLeast(third, 0xBE)));
    }

    template <bool>
    static void PutUnits(Octets x, Octets y, std::uint64_t kept, unsigned short* put) {
        KeepUnits(CombineLow(x, y), CombineHigh(x, y), kept, put);
    }
    template <bool>
    static void PutUnits(Octets x, Octets y, Octets w, std::uint64_t kept, unsigned short* put) {
        const uint8x16_t zero = vdupq_n_u8(0);
        KeepUnits(vaddq_u16(CombineLow(x, y), vreinterpretq_u16_u8(vzip1q_u8(zero, w))),
                  vaddq_u16(CombineHigh(x, y), vreinterpretq_u16_u8(vzip2q_u8(zero, w))), kept, put);
    }

    static std::size_t WidenBlocks(const unsigned char* source, std::size_t length, unsigned short* out) {
        std::size_t done = 0;
        for (; length - done >= kOctets; done += kOctets) {
            const uint8x16_t octets = Load(source + done);
            if (vmaxvq_u8(octets) >= 0x80) break;
            vst1q_u16(out + done, vmovl_u8(vget_low_u8(octets)));
            vst1q_u16(out + done + 8, vmovl_high_u8(octets));
        }
        return done;
    }

    static Units LoadUnits(const unsigned short* source) { return vld1q_u16(source); }
    static Units FillUnits(int unit) { return vdupq_n_u16(static_cast<std::uint16_t>(unit)); }
    static Units AndUnits(Units a, Units b) { return vandq_u16(a, b); }
    static Units OrUnits(Units a, Units b) { return vorrq_u16(a, b); }
    static Units AddUnits(Units a, Units b) { return vaddq_u16(a, b); }
    template <int Bits>
    static Units LeftUnits(Units a) {
        return vshlq_n_u16(a, Bits);
    }
    template <int Bits>
    static Units RightUnits(Units a) {
        return vshrq_n_u16(a, Bits);
    }
    static UnitLanes UnitsAtLeast(Units a, int unit) { return vcgeq_u16(a, FillUnits(unit)); }
    static UnitLanes EqualUnits(Units a, Units b) { return vceqq_u16(a, b); }
    static std::uint64_t UnitBits(UnitLanes lanes) {
        static constexpr unsigned short bitOfLane[8] = {1, 2, 4, 8, 16, 32, 64, 128};
        return vaddvq_u16(vandq_u16(lanes, vld1q_u16(bitOfLane)));
    }
    static bool AnyUnits(UnitLanes lanes) { return vmaxvq_u16(lanes) != 0; }
    static Units SelectUnits(UnitLanes lanes, Units a, Units b) { return vbslq_u16(lanes, a, b); }

    static char* PutPairs(Units pairs, std::uint64_t highs, char* put) {
        StoreRow(put, kOneOrTwo, highs, vreinterpretq_u8_u16(pairs));
        return put + 8 + Count(highs);
    }

    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes, char* put) {
        const std::uint64_t rows = SpreadNibbles(highs) | SpreadNibbles(threes) << 4;
        StoreRow(put, kOneToThree, rows & 0xFF, vreinterpretq_u8_u16(vzip1q_u16(front, last)));
        StoreRow(put + 4 + Count(rows & 0xFF), kOneToThree, rows >> 8,
                 vreinterpretq_u8_u16(vzip2q_u16(front, last)));
        return put + 8 + Count(rows);
    }

    static std::size_t NarrowBlocks(const unsigned short* source, std::size_t length, char* out) {
        std::size_t done = 0;
        auto* const put = reinterpret_cast<unsigned char*>(out);
        for (; length - done >= kOctets; done += kOctets) {
            const uint16x8_t a = LoadUnits(source + done);
            const uint16x8_t b = LoadUnits(source + done + 8);
            if (vmaxvq_u16(vorrq_u16(a, b)) >= 0x80) break;
            vst1q_u8(put + done, vmovn_high_u16(vmovn_u16(a), b));
        }
        if (length - done >= 8) {
            const uint16x8_t a = LoadUnits(source + done);
            if (vmaxvq_u16(a) < 0x80) {
                vst1_u8(put + done, vmovn_u16(a));
                done += 8;
            }
        }
        return done;
    }

    ZBASE_READS_BESIDE static std::uint64_t ZeroUnits(const unsigned char* block) {
        const uint16x8_t units = *reinterpret_cast<const uint16x8_t*>(block);
        return Bits(vreinterpretq_u8_u16(vceqzq_u16(units)));
    }

    static Lanes Reserved(Octets octets) {
        const uint8x16_t rows = vqtbl1q_u8(Load(kUnreservedRows.rows), And(octets, Fill(0x0F)));
        return vceqzq_u8(And(rows, vqtbl1q_u8(Load(kBitOfHighHalf), Right<4>(octets))));
    }
    static void StoreOctets(char* put, Octets octets) {
        vst1q_u8(reinterpret_cast<unsigned char*>(put), octets);
    }
    static char* PutEscaped(Octets octets, std::uint64_t reserved, char* put) {
        const uint8x16_t first = Select(FromBits(reserved), Fill('%'), octets);
        const uint8x16_t second = Digits(Right<4>(octets));
        const uint8x16_t third = Digits(And(octets, Fill(0x0F)));
        const uint16x8_t frontLow = vreinterpretq_u16_u8(vzip1q_u8(first, second));
        const uint16x8_t backLow = vreinterpretq_u16_u8(vzip1q_u8(third, third));
        const uint16x8_t frontHigh = vreinterpretq_u16_u8(vzip2q_u8(first, second));
        const uint16x8_t backHigh = vreinterpretq_u16_u8(vzip2q_u8(third, third));
        const uint16x8_t quads[4] = {vzip1q_u16(frontLow, backLow), vzip2q_u16(frontLow, backLow),
                                     vzip1q_u16(frontHigh, backHigh), vzip2q_u16(frontHigh, backHigh)};
        for (const uint16x8_t& quad : quads) {
            const uint8x16_t row = Load(kEscapeRows.rows[reserved & 0xF]);
            StoreOctets(put, vqtbl1q_u8(vreinterpretq_u8_u16(quad), row));
            put += 4 + 2 * Count(reserved & 0xF);
            reserved >>= 4;
        }
        return put;
    }
    static void PutDigits16(const unsigned char* source, unsigned short* out) {
        const uint8x16_t octets = Load(source);
        const uint8x16_t high = Digits(Right<4>(octets));
        const uint8x16_t low = Digits(And(octets, Fill(0x0F)));
        const uint8x16_t front = vzip1q_u8(high, low);
        const uint8x16_t back = vzip2q_u8(high, low);
        vst1q_u16(out, vmovl_u8(vget_low_u8(front)));
        vst1q_u16(out + 8, vmovl_high_u8(front));
        vst1q_u16(out + 16, vmovl_u8(vget_low_u8(back)));
        vst1q_u16(out + 24, vmovl_high_u8(back));
    }

    static std::size_t Count(std::uint64_t bits) {
        return static_cast<std::size_t>(__builtin_popcountll(bits));
    }

private:
    static uint8x16_t BitOfLane() {
        static constexpr unsigned char bits[16] = {1, 2, 4, 8, 16, 32, 64, 128, 1, 2, 4, 8, 16, 32, 64, 128};
        return vld1q_u8(bits);
    }
    static uint8x16_t Digits(uint8x16_t values) {
        return vqtbl1q_u8(Load(reinterpret_cast<const unsigned char*>(kUpperDigits)), values);
    }
    static uint16x8_t CombineLow(uint8x16_t x, uint8x16_t y) {
        return vaddw_u8(vshll_n_u8(vget_low_u8(x), 6), vget_low_u8(y));
    }
    static uint16x8_t CombineHigh(uint8x16_t x, uint8x16_t y) {
        return vaddw_high_u8(vshll_high_n_u8(x, 6), y);
    }
    static void StoreRow(void* put, const ShuffleTable& table, std::uint64_t row, uint8x16_t octets) {
        vst1q_u8(static_cast<unsigned char*>(put), vqtbl1q_u8(octets, vld1q_u8(table.rows[row])));
    }
    static void KeepUnits(uint16x8_t low, uint16x8_t high, std::uint64_t kept, unsigned short* put) {
        StoreRow(put, kWholePairs, kept & 0xFF, vreinterpretq_u8_u16(low));
        StoreRow(put + Count(kept & 0xFF), kWholePairs, kept >> 8, vreinterpretq_u8_u16(high));
    }
};

constexpr TextKernels kKernels = KernelsOf<Neon>("NEON");

}  // namespace

const TextKernels* NeonKernels() {
    return &kKernels;
}

}  // namespace ZBase::detail

#endif
