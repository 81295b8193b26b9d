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

    static Octets Load(const unsigned char* source) { return _mm512_loadu_si512(source); }
    // From `Distance` octets behind `block` to its end, then zeros.
    template <int Distance>
    static Octets LoadUpTo(const unsigned char* block) {
        return _mm512_maskz_loadu_epi8(~__mmask64{0} >> Distance, block + Distance);
    }
    static Octets Fill(int octet) { return _mm512_set1_epi8(static_cast<char>(octet)); }
    static Octets And(Octets a, Octets b) { return _mm512_and_si512(a, b); }
    static Octets Or(Octets a, Octets b) { return _mm512_or_si512(a, b); }
    static Octets Add(Octets a, Octets b) { return _mm512_add_epi8(a, b); }
    // Shifts may bring in bits of the octet beside; the caller masks them.
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

    // What is wrong about two octets, a bit for each reason: by the halves of the first, by the second.
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

    static void PutUnits(Octets x, Octets y, std::uint64_t kept, unsigned short* put) {
        KeepUnits(Combine(_mm512_unpacklo_epi8(x, y)), Combine(_mm512_unpackhi_epi8(x, y)), kept, put);
    }
    static void PutUnits(Octets x, Octets y, Octets w, std::uint64_t kept, unsigned short* put) {
        const __m512i zero = _mm512_setzero_si512();
        KeepUnits(_mm512_add_epi16(Combine(_mm512_unpacklo_epi8(x, y)), _mm512_unpacklo_epi8(zero, w)),
                  _mm512_add_epi16(Combine(_mm512_unpackhi_epi8(x, y)), _mm512_unpackhi_epi8(zero, w)), kept,
                  put);
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

    static Units LoadUnits(const unsigned short* source) { return _mm512_loadu_si512(source); }
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
    // By way of an ordinary register: GCC 12 takes a spilled mask of 32 bits for one of 64.
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
        const __m512i packed = _mm512_shuffle_epi8(
            pairs, Rows(kOneOrTwo, highs & 0xFF, highs >> 8 & 0xFF, highs >> 16 & 0xFF, highs >> 24));
        StoreQuarter<0>(put, packed);
        StoreQuarter<1>(put + 8 + Count(highs & 0xFF), packed);
        StoreQuarter<2>(put + 16 + Count(highs & 0xFFFF), packed);
        StoreQuarter<3>(put + 24 + Count(highs & 0xFFFFFF), packed);
        return put + 32 + Count(highs);
    }

    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes, char* put) {
        const std::uint64_t low = SpreadNibbles(highs & 0xFFFF) | SpreadNibbles(threes & 0xFFFF) << 4;
        const std::uint64_t high = SpreadNibbles(highs >> 16) | SpreadNibbles(threes >> 16) << 4;
        const std::uint64_t rows = low | high << 32;
        const __m512i even =
            _mm512_shuffle_epi8(_mm512_unpacklo_epi16(front, last), EvenRows(kOneToThree, rows));
        const __m512i odd =
            _mm512_shuffle_epi8(_mm512_unpackhi_epi16(front, last), EvenRows(kOneToThree, rows >> 8));
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

    static std::size_t Count(std::uint64_t bits) { return static_cast<std::size_t>(_mm_popcnt_u64(bits)); }

private:
    static void Store(void* put, __m512i value) { _mm512_storeu_si512(put, value); }
    template <int Quarter>
    static void StoreQuarter(void* put, __m512i value) {
        _mm_storeu_si128(static_cast<__m128i*>(put), _mm512_extracti32x4_epi32(value, Quarter));
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
    static __m512i Combine(__m512i pairs) { return _mm512_maddubs_epi16(pairs, _mm512_set1_epi16(0x0140)); }

    static void KeepUnits(__m512i even, __m512i odd, std::uint64_t kept, unsigned short* put) {
        even = _mm512_shuffle_epi8(even, EvenRows(kWholePairs, kept));
        odd = _mm512_shuffle_epi8(odd, EvenRows(kWholePairs, kept >> 8));
        StoreQuarter<0>(put, even);
        StoreQuarter<0>(put + Count(kept & 0xFF), odd);
        StoreQuarter<1>(put + Count(kept & 0xFFFF), even);
        StoreQuarter<1>(put + Count(kept & 0xFFFFFF), odd);
        StoreQuarter<2>(put + Count(kept & 0xFFFFFFFF), even);
        StoreQuarter<2>(put + Count(kept & 0xFFFFFFFFFF), odd);
        StoreQuarter<3>(put + Count(kept & 0xFFFFFFFFFFFF), even);
        StoreQuarter<3>(put + Count(kept & 0xFFFFFFFFFFFFFF), odd);
    }
};

constexpr TextKernels kKernels = KernelsOf<Avx512>("AVX-512");

}  // namespace

const TextKernels* Avx512Kernels() {
    return &kKernels;
}

}  // namespace ZBase::detail

#endif
