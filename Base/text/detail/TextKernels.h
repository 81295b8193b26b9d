#pragma once

#include <atomic>
#include <cstddef>

namespace ZBase::detail {

/// Elements of a text that were read, and of another that were written for them.
struct Progress {
    std::size_t read;
    std::size_t written;
};

/// The fast ways through texts, in one form for each kind of processor. A conversion takes from the front of
/// a text what it can prove to be ordinary, whole characters only, and leaves the rest to the code that knows
/// all the rules. It may stop anywhere, also at once. Nothing is read beyond what is given.
struct TextKernels {
    const char* name;

    /// UTF-8 to units. `out` has space for `length` + 1 of them; those after the written ones are not
    /// changed.
    Progress (*decodeUtf8)(const unsigned char* source, std::size_t length, unsigned short* out);

    /// Units to UTF-8. May write up to 4 * `units` octets whatever it returns.
    Progress (*encodeUtf8)(const unsigned short* source, std::size_t units, char* out);

    /// Widens, or narrows, only the leading ASCII elements. Returns their number. May write all `length`
    /// elements whatever it returns.
    std::size_t (*widenAscii)(const unsigned char* source, std::size_t length, unsigned short* out);
    std::size_t (*narrowAscii)(const unsigned short* source, std::size_t length, char* out);

    /// Units before the terminator, at most `length`. Reads beyond a terminator only within its page.
    std::size_t (*countUnits)(const unsigned short* source, std::size_t length);

    /// The octets that a URL has escaped, and all octets in their form there: an escaped one takes three
    /// instead of one. Nothing is written but the text.
    std::size_t (*countReserved)(const unsigned char* source, std::size_t length);
    void (*escapeReserved)(const unsigned char* source, std::size_t length, char* out);

    /// Two upper-case hexadecimal digits for each octet.
    void (*putDigits)(const unsigned char* source, std::size_t length, unsigned short* out);
};

/// The kernels of this processor; null before the first call of `Kernels`.
extern constinit std::atomic<const TextKernels*> gKernels;

/// Chooses them.
const TextKernels& ChooseKernels();

/// The kernels of this processor, chosen at the first call. No lock and no heap: may be called in signal
/// handlers, in a forked child, and before any constructor.
inline const TextKernels& Kernels() {
    const TextKernels* const kernels = gKernels.load(std::memory_order_relaxed);
    return kernels != nullptr ? *kernels : ChooseKernels();
}

/// The kinds that this processor can run, from the simplest to the one that is chosen.
struct KernelList {
    const TextKernels* kinds[4] = {};
    std::size_t count = 0;
};
KernelList RunnableKernels();

/// Makes all conversions of the process use `kernels`, to compare the kinds; null chooses again.
void UseKernels(const TextKernels* kernels);

// One for each kind; null for other processor families.
const TextKernels* PlainKernels();
const TextKernels* Sse2Kernels();
const TextKernels* Avx2Kernels();
const TextKernels* Avx512Kernels();
const TextKernels* NeonKernels();

}  // namespace ZBase::detail
