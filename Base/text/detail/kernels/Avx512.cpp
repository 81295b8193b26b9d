#include <Base/text/detail/Digits.h>
#include <Base/text/detail/TextKernels.h>

#if defined(ZBASE_X86_64_KERNELS)

#include <Base/text/detail/kernels/ShuffleTables.h>
#include <Base/text/detail/kernels/Utf8Blocks.h>

#include <immintrin.h>

namespace ZBase::detail {

namespace {

// Instructions that move octets do so within each quarter of a register, hence the order of the groups.
struct Avx512 {
    static constexpr std::size_t kOctets = 64;
    static constexpr bool kTakesParts = true;  // lanes that a mask leaves out neither fault nor are written
    using Octets = __m512i;
    using Lanes = __mmask64;
    using Units = __m512i;
    using UnitLanes = __mmask32;

    static Progress DecodeShorter(const unsigned char* source, std::size_t length, unsigned short* out) {
        return Avx2Kernels()->decodeUtf8(source, length, out);
    }
    static Progress EncodeShorter(const unsigned short* source, std::size_t units, char* out) {
        return Avx2Kernels()->encodeUtf8(source, units, out);
    }

    static std::uint64_t FirstBits(std::size_t count) {
        return _bzhi_u64(~std::uint64_t{0}, static_cast<unsigned int>(count));
    }
    static Octets LoadPart(const unsigned char* source, std::uint64_t present) {
        return _mm512_maskz_loadu_epi8(present, source);
    }

    static Octets Load(const unsigned char* source) { return _mm512_loadu_si512(source); }
    // From `Distance` octets after `block` to its end, then zeros.
    template <int Distance>
    static Octets LoadUpTo(const unsigned char* block) {
        return _mm512_maskz_loadu_epi8(~__mmask64{0} >> Distance, block + Distance);
    }
    static Octets Fill(int octet) { return _mm512_set1_epi8(static_cast<char>(octet)); }
    static Octets And(Octets a, Octets b) { return _mm512_and_si512(a, b); }
    static Octets Or(Octets a, Octets b) { return _mm512_or_si512(a, b); }
    static Octets Add(Octets a, Octets b) { return _mm512_add_epi8(a, b); }
    // Shifts may bring in bits of the neighbouring octet; the caller masks them.
    template <unsigned int Bits>
    static Octets Left(Octets a) {
        return _mm512_slli_epi16(a, Bits);
    }
    template <unsigned int Bits>
    static Octets Right(Octets a) {
        return _mm512_srli_epi16(a, Bits);
    }
    static Lanes AtLeast(Octets a, int octet) { return _mm512_cmpge_epu8_mask(a, Fill(octet)); }
    static Lanes Equal(Octets a, Octets b) { return _mm512_cmpeq_epi8_mask(a, b); }
    static std::uint64_t Bits(Lanes lanes) { return lanes; }
    static bool Any(Lanes lanes) { return lanes != 0; }
    static Lanes FromBits(std::uint64_t bits) { return bits; }
    static Octets Select(Lanes lanes, Octets a, Octets b) { return _mm512_mask_blend_epi8(lanes, b, a); }
    static Octets Keep(Lanes lanes, Octets a) { return _mm512_maskz_mov_epi8(lanes, a); }

    // The flaws of two octets, a bit for each reason: by the nibbles of the first, and by the second.
    static Lanes Flaws(Octets first, Octets second, Octets third) {
        constexpr char isOverlong2 = 1, isOverlong3 = 2, isSurrogate = 4, isOverlong4 = 8, isLarge = 16,
                       isLead = 32, always = isOverlong2 | isLead;
        const __m512i byHigh =
            _mm512_broadcast_i32x4(_mm_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, isOverlong2, 0,
                                                 isOverlong3 | isSurrogate, isOverlong4 | isLarge | isLead));
        const __m512i byLow = _mm512_broadcast_i32x4(_mm_setr_epi8(
            isOverlong2 | isOverlong3 | isOverlong4, isOverlong2, 0, 0, isLarge, isLead, isLead, isLead,
            isLead, isLead, isLead, isLead, isLead, isLead | isSurrogate, isLead, isLead));
        const __m512i bySecond = _mm512_broadcast_i32x4(_mm_setr_epi8(
            always, always, always, always, always, always, always, always,
            always | isOverlong3 | isOverlong4, always | isOverlong3 | isLarge,
            always | isSurrogate | isLarge, always | isSurrogate | isLarge, always, always, always, always));
        const __m512i nibble = Fill(0x0F);
        const __m512i wrong = And(_mm512_shuffle_epi8(byHigh, And(Right<4>(first), nibble)),
                                  _mm512_shuffle_epi8(byLow, And(first, nibble)));
        const __mmask64 flaws =
            _mm512_test_epi8_mask(wrong, _mm512_shuffle_epi8(bySecond, And(Right<4>(second), nibble)));
        // U+FFFE and U+FFFF.
        return flaws | (Equal(first, Fill(0xEF)) & Equal(second, Fill(0xBF)) & AtLeast(third, 0xBE));
    }

    template <bool IsPart>
    static void PutUnits(Octets x, Octets y, std::uint64_t kept, unsigned short* put) {
        KeepUnits<IsPart>(Combine(_mm512_unpacklo_epi8(x, y)), Combine(_mm512_unpackhi_epi8(x, y)), kept,
                          put);
    }
    template <bool IsPart>
    static void PutUnits(Octets x, Octets y, Octets w, std::uint64_t kept, unsigned short* put) {
        const __m512i zero = _mm512_setzero_si512();
        KeepUnits<IsPart>(
            _mm512_add_epi16(Combine(_mm512_unpacklo_epi8(x, y)), _mm512_unpacklo_epi8(zero, w)),
            _mm512_add_epi16(Combine(_mm512_unpackhi_epi8(x, y)), _mm512_unpackhi_epi8(zero, w)), kept, put);
    }

    static std::size_t WidenBlocks(const unsigned char* source, std::size_t length, unsigned short* out) {
        std::size_t done = 0;
        for (; length - done >= kOctets; done += kOctets) {
            const __m512i octets = Load(source + done);
            if (_mm512_movepi8_mask(octets) != 0) break;
            Store(out + done, _mm512_cvtepu8_epi16(_mm512_castsi512_si256(octets)));
            Store(out + done + kOctets / 2, _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(octets, 1)));
        }
        return done;
    }

    static void WidenPart(Octets octets, std::uint64_t present, unsigned short* out) {
        _mm512_mask_storeu_epi16(out, static_cast<__mmask32>(present),
                                 _mm512_cvtepu8_epi16(_mm512_castsi512_si256(octets)));
        if (present >> 32 == 0) return;
        _mm512_mask_storeu_epi16(out + 32, static_cast<__mmask32>(present >> 32),
                                 _mm512_cvtepu8_epi16(_mm512_extracti64x4_epi64(octets, 1)));
    }

    static Units LoadUnits(const unsigned short* source) { return _mm512_loadu_si512(source); }
    static Units LoadUnitsPart(const unsigned short* source, std::uint64_t present) {
        return _mm512_maskz_loadu_epi16(static_cast<__mmask32>(present), source);
    }
    static Units FillUnits(int unit) { return _mm512_set1_epi16(static_cast<short>(unit)); }
    static Units AndUnits(Units a, Units b) { return _mm512_and_si512(a, b); }
    static Units OrUnits(Units a, Units b) { return _mm512_or_si512(a, b); }
    static Units AddUnits(Units a, Units b) { return _mm512_add_epi16(a, b); }
    template <unsigned int Bits>
    static Units LeftUnits(Units a) {
        return _mm512_slli_epi16(a, Bits);
    }
    template <unsigned int Bits>
    static Units RightUnits(Units a) {
        return _mm512_srli_epi16(a, Bits);
    }
    static UnitLanes UnitsAtLeast(Units a, int unit) { return _mm512_cmpge_epu16_mask(a, FillUnits(unit)); }
    static UnitLanes EqualUnits(Units a, Units b) { return _mm512_cmpeq_epi16_mask(a, b); }
    // Through a general register: GCC 12 reads a spilled 32-bit mask as a 64-bit one.
    static std::uint64_t UnitBits(UnitLanes lanes) {
        std::uint32_t bits = lanes;
        asm("" : "+r"(bits));
        return bits;
    }
    static bool AnyUnits(UnitLanes lanes) { return lanes != 0; }
    static Units SelectUnits(UnitLanes lanes, Units a, Units b) {
        return _mm512_mask_blend_epi16(lanes, b, a);
    }

    static char* PutPairs(Units pairs, std::uint64_t highs, char* put) {
        return PutPairs<false>(pairs, highs, ~std::uint64_t{0} >> 32, put);
    }
    static void NarrowPart(Units units, std::uint64_t present, char* put) {
        _mm256_mask_storeu_epi8(put, static_cast<__mmask32>(present), _mm512_cvtepi16_epi8(units));
    }
    static char* PutPairsPart(Units pairs, std::uint64_t highs, std::uint64_t present, char* put) {
        return PutPairs<true>(pairs, highs, present, put);
    }
    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes, char* put) {
        return PutQuads<false>(front, last, highs, threes, ~std::uint64_t{0} >> 32, put);
    }
    static char* PutQuadsPart(Units front, Units last, std::uint64_t highs, std::uint64_t threes,
                              std::uint64_t present, char* put) {
        return PutQuads<true>(front, last, highs, threes, present, put);
    }

    static std::size_t NarrowBlocks(const unsigned short* source, std::size_t length, char* out) {
        std::size_t done = 0;
        for (; length - done >= kOctets / 2; done += kOctets / 2) {
            const __m512i units = LoadUnits(source + done);
            if (_mm512_test_epi16_mask(units, FillUnits(0xFF80)) != 0) break;
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + done), _mm512_cvtepi16_epi8(units));
        }
        return done;
    }

    ZBASE_READS_BESIDE static std::uint64_t ZeroUnits(const unsigned char* block) {
        const __m512i units = *reinterpret_cast<const __m512i*>(block);
        return _mm512_movepi8_mask(_mm512_movm_epi16(_mm512_testn_epi16_mask(units, units)));
    }

    static Lanes Reserved(Octets octets) {
        const __m512i nibble = Fill(0x0F);
        return _mm512_testn_epi8_mask(
            _mm512_shuffle_epi8(Table(kUnreservedRows.rows), And(octets, nibble)),
            _mm512_shuffle_epi8(Table(kBitOfHighHalf), And(Right<4>(octets), nibble)));
    }
    static void StoreOctets(char* put, Octets octets) { Store(put, octets); }
    static char* PutEscaped(Octets octets, std::uint64_t reserved, char* put) {
        const __m512i nibble = Fill(0x0F);
        const __m512i digits = Table(reinterpret_cast<const unsigned char*>(kUpperDigits));
        const __m512i first = Select(reserved, Fill('%'), octets);
        const __m512i second = _mm512_shuffle_epi8(digits, And(Right<4>(octets), nibble));
        const __m512i third = _mm512_shuffle_epi8(digits, And(octets, nibble));
        const __m512i frontLow = _mm512_unpacklo_epi8(first, second);
        const __m512i backLow = _mm512_unpacklo_epi8(third, third);
        const __m512i frontHigh = _mm512_unpackhi_epi8(first, second);
        const __m512i backHigh = _mm512_unpackhi_epi8(third, third);
        // Each holds four octets of each quarter of the text.
        const __m512i quads[4] = {PickEscapes<0>(_mm512_unpacklo_epi16(frontLow, backLow), reserved),
                                  PickEscapes<4>(_mm512_unpackhi_epi16(frontLow, backLow), reserved),
                                  PickEscapes<8>(_mm512_unpacklo_epi16(frontHigh, backHigh), reserved),
                                  PickEscapes<12>(_mm512_unpackhi_epi16(frontHigh, backHigh), reserved)};
        put = StoreEscapes<0>(put, quads, reserved);
        put = StoreEscapes<1>(put, quads, reserved >> 16);
        put = StoreEscapes<2>(put, quads, reserved >> 32);
        return StoreEscapes<3>(put, quads, reserved >> 48);
    }
    static void PutDigits16(const unsigned char* source, unsigned short* out) {
        const __m128i octets = _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
        const __m128i digits = _mm_loadu_si128(reinterpret_cast<const __m128i*>(kUpperDigits));
        const __m128i nibble = _mm_set1_epi8(0x0F);
        const __m128i high = _mm_shuffle_epi8(digits, _mm_and_si128(_mm_srli_epi16(octets, 4), nibble));
        const __m128i low = _mm_shuffle_epi8(digits, _mm_and_si128(octets, nibble));
        Store(out,
              _mm512_cvtepu8_epi16(_mm256_inserti128_si256(
                  _mm256_castsi128_si256(_mm_unpacklo_epi8(high, low)), _mm_unpackhi_epi8(high, low), 1)));
    }

    static std::size_t Count(std::uint64_t bits) { return static_cast<std::size_t>(_mm_popcnt_u64(bits)); }

private:
    static void Store(void* put, __m512i value) { _mm512_storeu_si512(put, value); }
    // Of a part only the `count` octets that it has.
    template <int Quarter, bool IsPart = false>
    static void StoreQuarter(void* put, __m512i value, std::size_t count = 16) {
        const __m128i quarter = _mm512_extracti32x4_epi32(value, Quarter);
        if constexpr (IsPart) {
            _mm_mask_storeu_epi8(
                put, static_cast<__mmask16>(_bzhi_u32(0xFFFF, static_cast<unsigned int>(count))), quarter);
        } else {
            _mm_storeu_si128(static_cast<__m128i*>(put), quarter);
        }
    }

    // The octets of eight units of a part, and where they end.
    template <int Quarter, bool IsMasked>
    static char* StorePairs(char* put, __m512i packed, std::uint64_t highs, std::uint64_t present) {
        const std::size_t count = Count(highs >> 8 * Quarter & 0xFF) + Count(present >> 8 * Quarter & 0xFF);
        StoreQuarter<Quarter, IsMasked>(put, packed, count);
        return put + count;
    }
    template <bool IsMasked>
    static char* StoreAllPairs(char* put, __m512i packed, std::uint64_t highs, std::uint64_t present) {
        put = StorePairs<0, IsMasked>(put, packed, highs, present);
        if (present >> 8 == 0) return put;
        put = StorePairs<1, IsMasked>(put, packed, highs, present);
        if (present >> 16 == 0) return put;
        put = StorePairs<2, IsMasked>(put, packed, highs, present);
        if (present >> 24 == 0) return put;
        return StorePairs<3, IsMasked>(put, packed, highs, present);
    }
    template <bool IsPart>
    static char* PutPairs(Units pairs, std::uint64_t highs, std::uint64_t present, char* put) {
        const __m512i packed = _mm512_shuffle_epi8(
            pairs, Rows(kOneOrTwo, highs & 0xFF, highs >> 8 & 0xFF, highs >> 16 & 0xFF, highs >> 24));
        if constexpr (IsPart) {
            // From a fourth unit on, 16 octets from where any eight of them begin are in four times the
            // units.
            return present >> 3 == 0 ? StoreAllPairs<true>(put, packed, highs, present)
                                     : StoreAllPairs<false>(put, packed, highs, present);
        }
        StoreQuarter<0>(put, packed);
        StoreQuarter<1>(put + 8 + Count(highs & 0xFF), packed);
        StoreQuarter<2>(put + 16 + Count(highs & 0xFFFF), packed);
        StoreQuarter<3>(put + 24 + Count(highs & 0xFFFFFF), packed);
        return put + 32 + Count(highs);
    }

    // The octets of four units of a part, of which `row` tells those that are more than one, and where they
    // end.
    template <int Quarter, bool IsMasked>
    static char* StoreQuads(char* put, __m512i quads, std::uint64_t row, std::uint64_t present) {
        const std::size_t count = Count(row & 0xFF) + Count(present & 0xF);
        StoreQuarter<Quarter, IsMasked>(put, quads, count);
        return put + count;
    }
    template <bool IsMasked>
    static char* StoreAllQuads(char* put, __m512i even, __m512i odd, std::uint64_t rows,
                               std::uint64_t present) {
        put = StoreQuads<0, IsMasked>(put, even, rows, present);
        if (present >> 4 == 0) return put;
        put = StoreQuads<0, IsMasked>(put, odd, rows >> 8, present >> 4);
        if (present >> 8 == 0) return put;
        put = StoreQuads<1, IsMasked>(put, even, rows >> 16, present >> 8);
        if (present >> 12 == 0) return put;
        put = StoreQuads<1, IsMasked>(put, odd, rows >> 24, present >> 12);
        if (present >> 16 == 0) return put;
        put = StoreQuads<2, IsMasked>(put, even, rows >> 32, present >> 16);
        if (present >> 20 == 0) return put;
        put = StoreQuads<2, IsMasked>(put, odd, rows >> 40, present >> 20);
        if (present >> 24 == 0) return put;
        put = StoreQuads<3, IsMasked>(put, even, rows >> 48, present >> 24);
        if (present >> 28 == 0) return put;
        return StoreQuads<3, IsMasked>(put, odd, rows >> 56, present >> 28);
    }
    template <bool IsPart>
    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes,
                          std::uint64_t present, char* put) {
        const std::uint64_t low = SpreadNibbles(highs & 0xFFFF) | SpreadNibbles(threes & 0xFFFF) << 4;
        const std::uint64_t high = SpreadNibbles(highs >> 16) | SpreadNibbles(threes >> 16) << 4;
        const std::uint64_t rows = low | high << 32;
        const __m512i even =
            _mm512_shuffle_epi8(_mm512_unpacklo_epi16(front, last), EvenRows(kOneToThree, rows));
        const __m512i odd =
            _mm512_shuffle_epi8(_mm512_unpackhi_epi16(front, last), EvenRows(kOneToThree, rows >> 8));
        if constexpr (IsPart) {
            // Four units behind `g` fours begin at 12 * g at most, and 12 * g + 16 is in four times 4 * g + 1
            // from g = 3 on.
            return present >> 12 == 0 ? StoreAllQuads<true>(put, even, odd, rows, present)
                                      : StoreAllQuads<false>(put, even, odd, rows, present);
        }
        StoreQuarter<0>(put, even);
        StoreQuarter<0>(put + 4 + Count(rows & 0xFF), odd);
        StoreQuarter<1>(put + 8 + Count(rows & 0xFFFF), even);
        StoreQuarter<1>(put + 12 + Count(rows & 0xFFFFFF), odd);
        StoreQuarter<2>(put + 16 + Count(rows & 0xFFFFFFFF), even);
        StoreQuarter<2>(put + 20 + Count(rows & 0xFFFFFFFFFF), odd);
        StoreQuarter<3>(put + 24 + Count(rows & 0xFFFFFFFFFFFF), even);
        StoreQuarter<3>(put + 28 + Count(rows & 0xFFFFFFFFFFFFFF), odd);
        return put + 32 + Count(rows);
    }

    static __m256i HalfRows(const ShuffleTable& table, std::uint64_t a, std::uint64_t b) {
        return _mm256_inserti128_si256(
            _mm256_castsi128_si256(_mm_load_si128(reinterpret_cast<const __m128i*>(table.rows[a]))),
            _mm_load_si128(reinterpret_cast<const __m128i*>(table.rows[b])), 1);
    }
    static __m512i Rows(const ShuffleTable& table, std::uint64_t a, std::uint64_t b, std::uint64_t c,
                        std::uint64_t d) {
        return _mm512_inserti64x4(_mm512_castsi256_si512(HalfRows(table, a, b)), HalfRows(table, c, d), 1);
    }
    // The rows of every other octet of `bits`.
    static __m512i EvenRows(const ShuffleTable& table, std::uint64_t bits) {
        return Rows(table, bits & 0xFF, bits >> 16 & 0xFF, bits >> 32 & 0xFF, bits >> 48 & 0xFF);
    }
    static __m512i Table(const unsigned char* octets) {
        return _mm512_broadcast_i32x4(_mm_loadu_si128(reinterpret_cast<const __m128i*>(octets)));
    }
    static __m128i EscapeRow(std::uint64_t reserved) {
        return _mm_load_si128(reinterpret_cast<const __m128i*>(kEscapeRows.rows[reserved & 0xF]));
    }
    template <int At>
    static __m512i PickEscapes(__m512i quads, std::uint64_t reserved) {
        const std::uint64_t bits = reserved >> At;
        const __m256i low =
            _mm256_inserti128_si256(_mm256_castsi128_si256(EscapeRow(bits)), EscapeRow(bits >> 16), 1);
        const __m256i high =
            _mm256_inserti128_si256(_mm256_castsi128_si256(EscapeRow(bits >> 32)), EscapeRow(bits >> 48), 1);
        return _mm512_shuffle_epi8(quads, _mm512_inserti64x4(_mm512_castsi256_si512(low), high, 1));
    }
    template <int Quarter>
    static char* StoreEscapes(char* put, const __m512i (&quads)[4], std::uint64_t reserved) {
#pragma GCC unroll 4
        for (const __m512i& quad : quads) {
            StoreQuarter<Quarter>(put, quad);
            put += 4 + 2 * Count(reserved & 0xF);
            reserved >>= 4;
        }
        return put;
    }
    static __m512i Combine(__m512i pairs) { return _mm512_maddubs_epi16(pairs, _mm512_set1_epi16(0x0140)); }

    template <bool IsPart>
    static void KeepUnits(__m512i even, __m512i odd, std::uint64_t kept, unsigned short* put) {
        even = _mm512_shuffle_epi8(even, EvenRows(kWholePairs, kept));
        odd = _mm512_shuffle_epi8(odd, EvenRows(kWholePairs, kept >> 8));
        StoreKept<0, 0, IsPart>(put, even, kept);
        StoreKept<0, 1, IsPart>(put, odd, kept);
        if (IsPart && kept >> 16 == 0) return;
        StoreKept<1, 2, IsPart>(put, even, kept);
        StoreKept<1, 3, IsPart>(put, odd, kept);
        if (IsPart && kept >> 32 == 0) return;
        StoreKept<2, 4, IsPart>(put, even, kept);
        StoreKept<2, 5, IsPart>(put, odd, kept);
        StoreKept<3, 6, IsPart>(put, even, kept);
        StoreKept<3, 7, IsPart>(put, odd, kept);
    }
    // The units of the eight octets that are number `Eight` of the block.
    template <int Quarter, int Eight, bool IsPart>
    static void StoreKept(unsigned short* put, __m512i units, std::uint64_t kept) {
        constexpr std::uint64_t before = (std::uint64_t{1} << 8 * Eight) - 1;
        StoreQuarter<Quarter, IsPart>(put + Count(kept & before), units, 2 * Count(kept >> 8 * Eight & 0xFF));
    }
};

constexpr TextKernels kKernels = KernelsOf<Avx512>("AVX-512");

}  // namespace

const TextKernels* Avx512Kernels() {
    return &kKernels;
}

}  // namespace ZBase::detail

#endif
