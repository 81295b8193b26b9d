// What the measured code calls most of the C library, in its own form, so that it is the same on both
// systems: Wine's library counts the length of a text octet by octet, and saves registers around each copy.

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace {

// Copies the first and the last `Word` of up to two of them, reading both before it writes.
template <class Word>
void CopyEnds(char* to, const char* from, std::size_t size) {
    Word first, last;
    __builtin_memcpy(&first, from, sizeof first);
    __builtin_memcpy(&last, from + size - sizeof last, sizeof last);
    __builtin_memcpy(to, &first, sizeof first);
    __builtin_memcpy(to + size - sizeof last, &last, sizeof last);
}

__m128i Load(const char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}
void Store(char* to, __m128i octets) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), octets);
}

}  // namespace

extern "C" std::size_t strlen(const char* text) noexcept {
    // Within 16 octets from an even address there is no other page.
    const char* block =
        reinterpret_cast<const char*>(reinterpret_cast<std::uintptr_t>(text) & ~std::uintptr_t{15});
    auto zeros =
        static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(Load(block), _mm_setzero_si128())));
    zeros = zeros >> (text - block) << (text - block);
    while (zeros == 0) {
        block += 16;
        zeros =
            static_cast<unsigned int>(_mm_movemask_epi8(_mm_cmpeq_epi8(Load(block), _mm_setzero_si128())));
    }
    return static_cast<std::size_t>(block - text) + static_cast<std::size_t>(__builtin_ctz(zeros));
}

extern "C" void* memmove(void* destination, const void* source, std::size_t size) noexcept {
    char* const to = static_cast<char*>(destination);
    const char* const from = static_cast<const char*>(source);
    if (size == 0) return destination;
    if (size < 16) {
        if (size >= 8) {
            CopyEnds<std::uint64_t>(to, from, size);
        } else if (size >= 4) {
            CopyEnds<std::uint32_t>(to, from, size);
        } else {
            const char first = from[0], middle = from[size / 2], last = from[size - 1];
            to[0] = first, to[size / 2] = middle, to[size - 1] = last;
        }
    } else if (reinterpret_cast<std::uintptr_t>(to) - reinterpret_cast<std::uintptr_t>(from) >= size) {
        const __m128i last = Load(from + size - 16);
        for (std::size_t at = 0; at < size - 16; at += 16) Store(to + at, Load(from + at));
        Store(to + size - 16, last);
    } else {
        const __m128i first = Load(from);
        for (std::size_t end = size; end > 16; end -= 16) Store(to + end - 16, Load(from + end - 16));
        Store(to, first);
    }
    return destination;
}

extern "C" void* memcpy(void* destination, const void* source, std::size_t size) noexcept {
    return memmove(destination, source, size);
}
