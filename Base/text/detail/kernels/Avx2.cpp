#include <Base/text/detail/Digits.h>
#include <Base/text/detail/TextKernels.h>

#if defined(ZBASE_X86_64_KERNELS)

#include <Base/text/detail/kernels/ShuffleTables.h>
#include <Base/text/detail/kernels/Utf8Blocks.h>

#include <immintrin.h>

namespace ZBase::detail {

namespace {

// Octet lanes are selected by their highest bit, unit lanes by all bits. Instructions that move octets do so
// within each half of a register, hence the order of the groups.
struct Avx2 {
    static constexpr std::size_t kOctets = 32;
    static constexpr bool kTakesParts = false;
    using Octets = __m256i;
    using Lanes = __m256i;
    using Units = __m256i;
    using UnitLanes = __m256i;

    static Progress DecodeShorter(const unsigned char* source, std::size_t length, unsigned short* out) {
        return Sse2Kernels()->decodeUtf8(source, length, out);
    }
    static Progress EncodeShorter(const unsigned short* source, std::size_t units, char* out) {
        return Sse2Kernels()->encodeUtf8(source, units, out);
    }

    static Octets Load(const unsigned char* source) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source));
    }
    // From `Distance` octets after `block` to its end, then zeros.
    template <int Distance>
    static Octets LoadUpTo(const unsigned char* block) {
        const __m256i octets = Load(block);
        return _mm256_alignr_epi8(_mm256_permute2x128_si256(octets, octets, 0x81), octets, Distance);
    }
    static Octets Fill(int octet) { return _mm256_set1_epi8(static_cast<char>(octet)); }
    static Octets And(Octets a, Octets b) { return _mm256_and_si256(a, b); }
    static Octets Or(Octets a, Octets b) { return _mm256_or_si256(a, b); }
    static Octets Add(Octets a, Octets b) { return _mm256_add_epi8(a, b); }
    // Shifts may bring in bits of the neighbouring octet; the caller masks them.
    template <int Bits>
    static Octets Left(Octets a) {
        return _mm256_slli_epi16(a, Bits);
    }
    template <int Bits>
    static Octets Right(Octets a) {
        return _mm256_srli_epi16(a, Bits);
    }
    static Lanes AtLeast(Octets a, int octet) { return _mm256_subs_epu8(a, Fill(octet - 0x80)); }
    static Lanes Equal(Octets a, Octets b) { return _mm256_cmpeq_epi8(a, b); }
    static std::uint64_t Bits(Lanes lanes) { return static_cast<std::uint32_t>(_mm256_movemask_epi8(lanes)); }
    static bool Any(Lanes lanes) { return _mm256_movemask_epi8(lanes) != 0; }
    static Lanes FromBits(std::uint64_t bits) {
        const __m256i spread =
            _mm256_shuffle_epi8(_mm256_set1_epi32(static_cast<int>(bits)),
                                _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2,
                                                 2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3));
        const __m256i bit = _mm256_set1_epi64x(static_cast<long long>(0x8040201008040201));
        return _mm256_cmpeq_epi8(_mm256_and_si256(spread, bit), bit);
    }
    static Octets Select(Lanes lanes, Octets a, Octets b) { return _mm256_blendv_epi8(b, a, lanes); }
    static Octets Keep(Lanes lanes, Octets a) { return Select(lanes, a, _mm256_setzero_si256()); }

    // The flaws of two octets, a bit for each reason: by the nibbles of the first, and by the second.
    static Lanes Flaws(Octets first, Octets second, Octets third) {
        constexpr char isOverlong2 = 1, isOverlong3 = 2, isSurrogate = 4, isOverlong4 = 8, isLarge = 16,
                       isLead = 32, always = isOverlong2 | isLead;
        const __m256i byHigh = _mm256_broadcastsi128_si256(
            _mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, isOverlong2, 0, isOverlong3 | isSurrogate,
                          isOverlong4 | isLarge | isLead));
        const __m256i byLow = _mm256_broadcastsi128_si256(_mm_setr_epi8(
            isOverlong2 | isOverlong3 | isOverlong4, isOverlong2, 0, 0, isLarge, isLead, isLead, isLead,
            isLead, isLead, isLead, isLead, isLead, isLead | isSurrogate, isLead, isLead));
        const __m256i bySecond = _mm256_broadcastsi128_si256(_mm_setr_epi8(
            always, always, always, always, always, always, always, always,
            always | isOverlong3 | isOverlong4, always | isOverlong3 | isLarge,
            always | isSurrogate | isLarge, always | isSurrogate | isLarge, always, always, always, always));
        const __m256i nibble = _mm256_set1_epi8(0x0F);
        const __m256i wrong =
            _mm256_and_si256(_mm256_and_si256(_mm256_shuffle_epi8(byHigh, And(Right<4>(first), nibble)),
                                              _mm256_shuffle_epi8(byLow, And(first, nibble))),
                             _mm256_shuffle_epi8(bySecond, And(Right<4>(second), nibble)));
        // U+FFFE and U+FFFF.
        const __m256i last = And(Equal(first, Fill(0xEF)), Equal(second, Fill(0xBF)));
        const __m256i beyond = And(last, AtLeast(third, 0xBE));
        return _mm256_or_si256(_mm256_cmpgt_epi8(wrong, _mm256_setzero_si256()), beyond);
    }

    template <bool>
    static void PutUnits(Octets x, Octets y, std::uint64_t kept, unsigned short* put) {
        Keep8(Combine(_mm256_unpacklo_epi8(x, y)), Combine(_mm256_unpackhi_epi8(x, y)), kept, put);
    }
    template <bool>
    static void PutUnits(Octets x, Octets y, Octets w, std::uint64_t kept, unsigned short* put) {
        const __m256i zero = _mm256_setzero_si256();
        Keep8(_mm256_add_epi16(Combine(_mm256_unpacklo_epi8(x, y)), _mm256_unpacklo_epi8(zero, w)),
              _mm256_add_epi16(Combine(_mm256_unpackhi_epi8(x, y)), _mm256_unpackhi_epi8(zero, w)), kept,
              put);
    }

    static std::size_t WidenBlocks(const unsigned char* source, std::size_t length, unsigned short* out) {
        std::size_t done = 0;
        for (; length - done >= 2 * kOctets; done += 2 * kOctets) {
            const __m256i a = Load(source + done);
            const __m256i b = Load(source + done + kOctets);
            if (_mm256_movemask_epi8(_mm256_or_si256(a, b)) != 0) break;
            Widen(a, out + done);
            Widen(b, out + done + kOctets);
        }
        for (; length - done >= kOctets; done += kOctets) {
            const __m256i a = Load(source + done);
            if (_mm256_movemask_epi8(a) != 0) break;
            Widen(a, out + done);
        }
        return done;
    }

    static Units LoadUnits(const unsigned short* source) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(source));
    }
    static Units FillUnits(int unit) { return _mm256_set1_epi16(static_cast<short>(unit)); }
    static Units AndUnits(Units a, Units b) { return _mm256_and_si256(a, b); }
    static Units OrUnits(Units a, Units b) { return _mm256_or_si256(a, b); }
    static Units AddUnits(Units a, Units b) { return _mm256_add_epi16(a, b); }
    template <int Bits>
    static Units LeftUnits(Units a) {
        return _mm256_slli_epi16(a, Bits);
    }
    template <int Bits>
    static Units RightUnits(Units a) {
        return _mm256_srli_epi16(a, Bits);
    }
    static UnitLanes UnitsAtLeast(Units a, int unit) {
        return _mm256_cmpeq_epi16(_mm256_max_epu16(a, FillUnits(unit)), a);
    }
    static UnitLanes EqualUnits(Units a, Units b) { return _mm256_cmpeq_epi16(a, b); }
    static std::uint64_t UnitBits(UnitLanes lanes) {
        const auto bits = static_cast<std::uint32_t>(
            _mm256_movemask_epi8(_mm256_packs_epi16(lanes, _mm256_setzero_si256())));
        return (bits & 0xFF) | bits >> 8;
    }
    static bool AnyUnits(UnitLanes lanes) { return _mm256_movemask_epi8(lanes) != 0; }
    static Units SelectUnits(UnitLanes lanes, Units a, Units b) { return _mm256_blendv_epi8(b, a, lanes); }

    static char* PutPairs(Units pairs, std::uint64_t highs, char* put) {
        const std::uint64_t a = highs & 0xFF;
        const std::uint64_t b = highs >> 8;
        const __m256i packed = _mm256_shuffle_epi8(pairs, Rows(kOneOrTwo, a, b));
        StoreHalf(put, _mm256_castsi256_si128(packed));
        StoreHalf(put + 8 + Count(a), _mm256_extracti128_si256(packed, 1));
        return put + 16 + Count(highs);
    }

    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes, char* put) {
        // In the order of the text: the low half of `even`, of `odd`, the high half of `even`, of `odd`.
        const std::uint64_t rows = SpreadNibbles(highs) | SpreadNibbles(threes) << 4;
        const __m256i even = _mm256_shuffle_epi8(_mm256_unpacklo_epi16(front, last),
                                                 Rows(kOneToThree, rows & 0xFF, rows >> 16 & 0xFF));
        const __m256i odd = _mm256_shuffle_epi8(_mm256_unpackhi_epi16(front, last),
                                                Rows(kOneToThree, rows >> 8 & 0xFF, rows >> 24));
        StoreHalf(put, _mm256_castsi256_si128(even));
        StoreHalf(put + 4 + Count(rows & 0xFF), _mm256_castsi256_si128(odd));
        StoreHalf(put + 8 + Count(rows & 0xFFFF), _mm256_extracti128_si256(even, 1));
        StoreHalf(put + 12 + Count(rows & 0xFFFFFF), _mm256_extracti128_si256(odd, 1));
        return put + 16 + Count(rows);
    }

    static std::size_t NarrowBlocks(const unsigned short* source, std::size_t length, char* out) {
        std::size_t done = 0;
        const __m256i high = FillUnits(0xFF80);
        for (; length - done >= kOctets; done += kOctets) {
            const __m256i a = LoadUnits(source + done);
            const __m256i b = LoadUnits(source + done + kOctets / 2);
            if (_mm256_testz_si256(_mm256_or_si256(a, b), high) == 0) break;
            Store(out + done, _mm256_permute4x64_epi64(_mm256_packus_epi16(a, b), 0xD8));
        }
        for (; length - done >= kOctets / 2; done += kOctets / 2) {
            const __m256i a = LoadUnits(source + done);
            if (_mm256_testz_si256(a, high) == 0) break;
            StoreHalf(out + done,
                      _mm_packus_epi16(_mm256_castsi256_si128(a), _mm256_extracti128_si256(a, 1)));
        }
        return done;
    }

    ZBASE_READS_BESIDE static std::uint64_t ZeroUnits(const unsigned char* block) {
        const __m256i units = *reinterpret_cast<const __m256i*>(block);
        return static_cast<std::uint32_t>(
            _mm256_movemask_epi8(_mm256_cmpeq_epi16(units, _mm256_setzero_si256())));
    }

    static Lanes Reserved(Octets octets) {
        const __m256i nibble = Fill(0x0F);
        const __m256i rows = _mm256_shuffle_epi8(Table(kUnreservedRows.rows), And(octets, nibble));
        const __m256i bits = _mm256_shuffle_epi8(Table(kBitOfHighHalf), And(Right<4>(octets), nibble));
        return Equal(And(rows, bits), _mm256_setzero_si256());
    }
    static void StoreOctets(char* put, Octets octets) { Store(put, octets); }
    static char* PutEscaped(Octets octets, std::uint64_t reserved, char* put) {
        const __m256i nibble = Fill(0x0F);
        const __m256i digits = Table(reinterpret_cast<const unsigned char*>(kUpperDigits));
        const __m256i first = Select(FromBits(reserved), Fill('%'), octets);
        const __m256i second = _mm256_shuffle_epi8(digits, And(Right<4>(octets), nibble));
        const __m256i third = _mm256_shuffle_epi8(digits, And(octets, nibble));
        const __m256i frontLow = _mm256_unpacklo_epi8(first, second);
        const __m256i backLow = _mm256_unpacklo_epi8(third, third);
        const __m256i frontHigh = _mm256_unpackhi_epi8(first, second);
        const __m256i backHigh = _mm256_unpackhi_epi8(third, third);
        // Each holds four octets of the first half of the text and four of the second.
        const __m256i quads[4] = {PickEscapes<0>(_mm256_unpacklo_epi16(frontLow, backLow), reserved),
                                  PickEscapes<4>(_mm256_unpackhi_epi16(frontLow, backLow), reserved),
                                  PickEscapes<8>(_mm256_unpacklo_epi16(frontHigh, backHigh), reserved),
                                  PickEscapes<12>(_mm256_unpackhi_epi16(frontHigh, backHigh), reserved)};
#pragma GCC unroll 4
        for (const __m256i& quad : quads) {
            StoreHalf(put, _mm256_castsi256_si128(quad));
            put += 4 + 2 * Count(reserved & 0xF);
            reserved >>= 4;
        }
#pragma GCC unroll 4
        for (const __m256i& quad : quads) {
            StoreHalf(put, _mm256_extracti128_si256(quad, 1));
            put += 4 + 2 * Count(reserved & 0xF);
            reserved >>= 4;
        }
        return put;
    }
    static void PutDigits16(const unsigned char* source, unsigned short* out) {
        const __m128i octets = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
        const __m128i digits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUpperDigits));
        const __m128i nibble = _mm_set1_epi8(0x0F);
        const __m128i high = _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi16(octets, 4), nibble));
        const __m128i low = _mm_shuffle_epi8(digits, _mm_and_si128(octets, nibble));
        Store(out, _mm256_cvtepu8_epi16(_mm_unpacklo_epi8(high, low)));
        Store(out + 16, _mm256_cvtepu8_epi16(_mm_unpackhi_epi8(high, low)));
    }

    static std::size_t Count(std::uint64_t bits) { return static_cast<std::size_t>(_mm_popcnt_u64(bits)); }

private:
    static void Store(void* put, __m256i value) { _mm256_storeu_si256(static_cast<__m256i*>(put), value); }
    static void StoreHalf(void* put, __m128i value) { _mm_storeu_si128(static_cast<__m128i*>(put), value); }
    static void Widen(__m256i octets, unsigned short* out) {
        Store(out, _mm256_cvtepu8_epi16(_mm256_castsi256_si128(octets)));
        Store(out + kOctets / 2, _mm256_cvtepu8_epi16(_mm256_extracti128_si256(octets, 1)));
    }
    static __m256i Rows(const ShuffleTable& table, std::uint64_t low, std::uint64_t high) {
        return _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table.rows[low]))),
            _mm_load_si128(reinterpret_cast<const __m128i*>(table.rows[high])), 1);
    }
    static __m256i Table(const unsigned char* octets) {
        return _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(octets)));
    }
    template <int At>
    static __m256i PickEscapes(__m256i quads, std::uint64_t reserved) {
        const auto row = [](std::uint64_t bits) {
            return _mm_load_si128(reinterpret_cast<const __m128i*>(kEscapeRows.rows[bits & 0xF]));
        };
        return _mm256_shuffle_epi8(quads, _mm256_inserti128_si256(_mm256_castsi128_si256(row(reserved >> At)),
                                                                  row(reserved >> (16 + At)), 1));
    }
    static __m256i Combine(__m256i pairs) { return _mm256_maddubs_epi16(pairs, _mm256_set1_epi16(0x0140)); }

    static void Keep8(__m256i even, __m256i odd, std::uint64_t kept, unsigned short* put) {
        even = _mm256_shuffle_epi8(even, Rows(kWholePairs, kept & 0xFF, kept >> 16 & 0xFF));
        odd = _mm256_shuffle_epi8(odd, Rows(kWholePairs, kept >> 8 & 0xFF, kept >> 24));
        StoreHalf(put, _mm256_castsi256_si128(even));
        StoreHalf(put + Count(kept & 0xFF), _mm256_castsi256_si128(odd));
        StoreHalf(put + Count(kept & 0xFFFF), _mm256_extracti128_si256(even, 1));
        StoreHalf(put + Count(kept & 0xFFFFFF), _mm256_extracti128_si256(odd, 1));
    }
};

constexpr TextKernels kKernels = KernelsOf<Avx2>("AVX2");

}  // namespace

const TextKernels* Avx2Kernels() {
    return &kKernels;
}

}  // namespace ZBase::detail

#endif
