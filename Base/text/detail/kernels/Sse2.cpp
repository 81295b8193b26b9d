#include <Base/text/detail/TextKernels.h>

#if defined(ZBASE_X86_64_KERNELS)

#include <Base/text/detail/kernels/Utf8Blocks.h>

#include <emmintrin.h>

namespace ZBase::detail {

namespace {

// SSE2 has no byte shuffle, so lanes are moved one by one; their values are computed together.
struct Sse2 {
    static constexpr std::size_t kOctets = 16;
    static constexpr bool kTakesParts = false;
    using Octets = __m128i;
    using Lanes = __m128i;
    using Units = __m128i;
    using UnitLanes = __m128i;

    static Progress DecodeShorter(const unsigned char*, std::size_t, unsigned short*) { return {0, 0}; }
    static Progress EncodeShorter(const unsigned short*, std::size_t, char*) { return {0, 0}; }

    static Octets Load(const unsigned char* source) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    }
    // From `Distance` octets after `block` to its end, then zeros.
    template <int Distance>
    static Octets LoadUpTo(const unsigned char* block) {
        return _mm_srli_si128(Load(block), Distance);
    }
    static Octets Fill(int octet) { return _mm_set1_epi8(static_cast<char>(octet)); }
    static Octets And(Octets a, Octets b) { return _mm_and_si128(a, b); }
    static Octets Or(Octets a, Octets b) { return _mm_or_si128(a, b); }
    static Octets Add(Octets a, Octets b) { return _mm_add_epi8(a, b); }
    // Shifts may bring in bits of the neighbouring octet; the caller masks them.
    template <int Bits>
    static Octets Left(Octets a) {
        return _mm_slli_epi16(a, Bits);
    }
    template <int Bits>
    static Octets Right(Octets a) {
        return _mm_srli_epi16(a, Bits);
    }
    static Lanes AtLeast(Octets a, int octet) { return _mm_cmpeq_epi8(_mm_max_epu8(a, Fill(octet)), a); }
    static Lanes Equal(Octets a, Octets b) { return _mm_cmpeq_epi8(a, b); }
    static std::uint64_t Bits(Lanes lanes) { return static_cast<std::uint32_t>(_mm_movemask_epi8(lanes)); }
    static bool Any(Lanes lanes) { return _mm_movemask_epi8(lanes) != 0; }
    static Lanes FromBits(std::uint64_t bits) {
        const __m128i both = _mm_set1_epi16(static_cast<short>(bits));
        const __m128i pairs = _mm_unpacklo_epi8(both, both);
        const __m128i spread = _mm_shufflehi_epi16(_mm_shufflelo_epi16(pairs, 0x00), 0x55);
        const __m128i bit = _mm_set1_epi64x(static_cast<long long>(0x8040201008040201));
        return _mm_cmpeq_epi8(_mm_and_si128(spread, bit), bit);
    }
    static Octets Select(Lanes lanes, Octets a, Octets b) {
        return _mm_or_si128(_mm_and_si128(lanes, a), _mm_andnot_si128(lanes, b));
    }
    static Octets Keep(Lanes lanes, Octets a) { return _mm_and_si128(lanes, a); }

    static Lanes Flaws(Octets first, Octets second, Octets third) {
        const auto is = [first](int octet) { return Equal(first, Fill(octet)); };
        const __m128i overlong = Or(Equal(And(first, Fill(0xFE)), Fill(0xC0)),
                                    Or(_mm_andnot_si128(AtLeast(second, 0xA0), is(0xE0)),
                                       _mm_andnot_si128(AtLeast(second, 0x90), is(0xF0))));
        const __m128i beyond = Or(And(AtLeast(second, 0x90), is(0xF4)), AtLeast(first, 0xF5));
        const __m128i surrogate = And(AtLeast(second, 0xA0), is(0xED));
        const __m128i last = And(And(is(0xEF), Equal(second, Fill(0xBF))), AtLeast(third, 0xBE));
        return Or(Or(overlong, beyond), Or(surrogate, last));
    }

    template <bool>
    static void PutUnits(Octets x, Octets y, std::uint64_t kept, unsigned short* put) {
        PutUnits<false>(x, y, _mm_setzero_si128(), kept, put);
    }
    template <bool>
    static void PutUnits(Octets x, Octets y, Octets w, std::uint64_t kept, unsigned short* put) {
        const __m128i zero = _mm_setzero_si128();
        const auto combine = [](__m128i a, __m128i b, __m128i c) {
            return _mm_add_epi16(_mm_add_epi16(_mm_slli_epi16(a, 6), b), c);
        };
        alignas(16) unsigned short units[kOctets];
        StoreAll(units,
                 combine(_mm_unpacklo_epi8(x, zero), _mm_unpacklo_epi8(y, zero), _mm_unpacklo_epi8(zero, w)));
        StoreAll(units + 8,
                 combine(_mm_unpackhi_epi8(x, zero), _mm_unpackhi_epi8(y, zero), _mm_unpackhi_epi8(zero, w)));
#pragma GCC unroll 16
        for (const unsigned short unit : units) {
            *put = unit;
            put += kept & 1;
            kept >>= 1;
        }
    }

    static std::size_t WidenBlocks(const unsigned char* source, std::size_t length, unsigned short* out) {
        std::size_t done = 0;
        const __m128i zero = _mm_setzero_si128();
        for (; length - done >= kOctets; done += kOctets) {
            const __m128i a = Load(source + done);
            if (_mm_movemask_epi8(a) != 0) break;
            StoreAll(out + done, _mm_unpacklo_epi8(a, zero));
            StoreAll(out + done + 8, _mm_unpackhi_epi8(a, zero));
        }
        return done;
    }

    static Units LoadUnits(const unsigned short* source) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(source));
    }
    static Units FillUnits(int unit) { return _mm_set1_epi16(static_cast<short>(unit)); }
    static Units AndUnits(Units a, Units b) { return _mm_and_si128(a, b); }
    static Units OrUnits(Units a, Units b) { return _mm_or_si128(a, b); }
    static Units AddUnits(Units a, Units b) { return _mm_add_epi16(a, b); }
    template <int Bits>
    static Units LeftUnits(Units a) {
        return _mm_slli_epi16(a, Bits);
    }
    template <int Bits>
    static Units RightUnits(Units a) {
        return _mm_srli_epi16(a, Bits);
    }
    static UnitLanes UnitsAtLeast(Units a, int unit) {
        return _mm_cmpeq_epi16(_mm_subs_epu16(FillUnits(unit), a), _mm_setzero_si128());
    }
    static UnitLanes EqualUnits(Units a, Units b) { return _mm_cmpeq_epi16(a, b); }
    static std::uint64_t UnitBits(UnitLanes lanes) {
        return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_packs_epi16(lanes, _mm_setzero_si128())));
    }
    static bool AnyUnits(UnitLanes lanes) { return _mm_movemask_epi8(lanes) != 0; }
    static Units SelectUnits(UnitLanes lanes, Units a, Units b) { return Select(lanes, a, b); }

    static char* PutPairs(Units pairs, std::uint64_t highs, char* put) {
        alignas(16) std::uint16_t lanes[8];
        StoreAll(lanes, pairs);
#pragma GCC unroll 8
        for (const std::uint16_t lane : lanes) {
            const auto octets = static_cast<std::uint16_t>(lane >> (highs & 1 ? 0 : 8));
            std::memcpy(put, &octets, sizeof octets);
            put += 1 + (highs & 1);
            highs >>= 1;
        }
        return put;
    }

    static char* PutQuads(Units front, Units last, std::uint64_t highs, std::uint64_t threes, char* put) {
        alignas(16) std::uint32_t lanes[8];
        StoreAll(lanes, _mm_unpacklo_epi16(front, last));
        StoreAll(lanes + 4, _mm_unpackhi_epi16(front, last));
#pragma GCC unroll 8
        for (const std::uint32_t lane : lanes) {
            const std::uint64_t more = (highs & 1) + (threes & 1);
            const std::uint32_t octets = lane >> (16 - 8 * more);
            std::memcpy(put, &octets, sizeof octets);
            put += 1 + more;
            highs >>= 1;
            threes >>= 1;
        }
        return put;
    }

    static std::size_t NarrowBlocks(const unsigned short* source, std::size_t length, char* out) {
        std::size_t done = 0;
        const __m128i high = FillUnits(0xFF80);
        const __m128i zero = _mm_setzero_si128();
        for (; length - done >= kOctets; done += kOctets) {
            const __m128i a = LoadUnits(source + done);
            const __m128i b = LoadUnits(source + done + 8);
            const __m128i seen = _mm_and_si128(_mm_or_si128(a, b), high);
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(seen, zero)) != 0xFFFF) break;
            StoreAll(out + done, _mm_packus_epi16(a, b));
        }
        if (length - done >= 8) {
            const __m128i a = LoadUnits(source + done);
            if (_mm_movemask_epi8(_mm_cmpeq_epi8(_mm_and_si128(a, high), zero)) == 0xFFFF) {
                _mm_storel_epi64(reinterpret_cast<__m128i*>(out + done), _mm_packus_epi16(a, a));
                done += 8;
            }
        }
        return done;
    }

    ZBASE_READS_BESIDE static std::uint64_t ZeroUnits(const unsigned char* block) {
        const __m128i units = *reinterpret_cast<const __m128i*>(block);
        return static_cast<std::uint32_t>(_mm_movemask_epi8(_mm_cmpeq_epi16(units, _mm_setzero_si128())));
    }

    static Lanes Reserved(Octets octets) {
        const __m128i folded = Or(octets, Fill(0x20));
        const __m128i isLetter = _mm_andnot_si128(AtLeast(folded, 'z' + 1), AtLeast(folded, 'a'));
        // "-", ".", "/" and the digits stand together.
        const __m128i isNumber =
            _mm_andnot_si128(Or(AtLeast(octets, '9' + 1), Equal(octets, Fill('/'))), AtLeast(octets, '-'));
        const __m128i isOther = Or(Equal(octets, Fill('_')), Equal(octets, Fill('~')));
        return _mm_cmpeq_epi8(Or(Or(isLetter, isNumber), isOther), _mm_setzero_si128());
    }
    static void StoreOctets(char* put, Octets octets) { StoreAll(put, octets); }
    static char* PutEscaped(Octets octets, std::uint64_t, char* put) {
        alignas(16) unsigned char lanes[16];
        StoreAll(lanes, octets);
#pragma GCC unroll 16
        for (const unsigned char octet : lanes) {
            std::memcpy(put, kUrlEscapes.texts[octet], 4);
            put += kUrlEscapes.sizes[octet];
        }
        return put;
    }
    static void PutDigits16(const unsigned char* source, unsigned short* out) {
        const __m128i octets = Load(source);
        const __m128i high = Digits(And(Right<4>(octets), Fill(0x0F)));
        const __m128i low = Digits(And(octets, Fill(0x0F)));
        const __m128i front = _mm_unpacklo_epi8(high, low);
        const __m128i back = _mm_unpackhi_epi8(high, low);
        const __m128i zero = _mm_setzero_si128();
        StoreAll(out, _mm_unpacklo_epi8(front, zero));
        StoreAll(out + 8, _mm_unpackhi_epi8(front, zero));
        StoreAll(out + 16, _mm_unpacklo_epi8(back, zero));
        StoreAll(out + 24, _mm_unpackhi_epi8(back, zero));
    }

    // Of at most 16 bits.
    static std::size_t Count(std::uint64_t bits) {
        bits -= bits >> 1 & 0x5555;
        bits = (bits & 0x3333) + (bits >> 2 & 0x3333);
        bits = (bits + (bits >> 4)) & 0x0F0F;
        return (bits + (bits >> 8)) & 0x1F;
    }

private:
    static __m128i Digits(__m128i values) {
        const __m128i letters = _mm_and_si128(_mm_cmpgt_epi8(values, Fill(9)), Fill('A' - '9' - 1));
        return Add(Add(values, Fill('0')), letters);
    }
    static void StoreAll(void* put, __m128i value) { _mm_storeu_si128(static_cast<__m128i*>(put), value); }
};

constexpr TextKernels kKernels = KernelsOf<Sse2>("SSE2");

}  // namespace

const TextKernels* Sse2Kernels() {
    return &kKernels;
}

}  // namespace ZBase::detail

#endif
