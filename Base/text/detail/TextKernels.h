#pragma once

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

    /// UTF-8 as units. `out` has room for `length` + 1 of them; nothing stays changed behind those written.
    Progress (*decodeUtf8)(const unsigned char* source, std::size_t length, unsigned short* out);

    /// Units as UTF-8. May write up to 4 * `units` octets whatever it reports.
    Progress (*encodeUtf8)(const unsigned short* source, std::size_t units, char* out);

    /// Widens, or narrows, the ASCII elements in front, and no others. Gives their number. May write all
    /// `length` elements whatever it reports.
    std::size_t (*widenAscii)(const unsigned char* source, std::size_t length, unsigned short* out);
    std::size_t (*narrowAscii)(const unsigned short* source, std::size_t length, char* out);

    /// Units before the terminator, at most `length`. Beyond a terminator nothing is looked at but what a
    /// page holds anyway.
    std::size_t (*countUnits)(const unsigned short* source, std::size_t length);

    /// The octets that a URL has escaped, and all octets in their form there: an escaped one takes three
    /// instead of one. Nothing is written but the text.
    std::size_t (*countReserved)(const unsigned char* source, std::size_t length);
    void (*escapeReserved)(const unsigned char* source, std::size_t length, char* out);

    /// Two upper-case hexadecimal digits for each octet.
    void (*putDigits)(const unsigned char* source, std::size_t length, unsigned short* out);
};

/// Those of this processor, chosen at the first call. No lock and no heap: for signal handlers, the child of
/// a fork, and before any constructor.
const TextKernels& Kernels();

/// The kinds that this processor can run, the simplest first, the one that is chosen last.
struct KernelList {
    const TextKernels* kinds[4] = {};
    std::size_t count = 0;
};
KernelList RunnableKernels();

/// Makes all conversions of the process take `kernels`, to compare the kinds; null makes them choose anew.
void UseKernels(const TextKernels* kernels);

// One for each kind; null for those of another family of processors.
const TextKernels* PlainKernels();
const TextKernels* Sse2Kernels();
const TextKernels* Avx2Kernels();
const TextKernels* Avx512Kernels();
const TextKernels* NeonKernels();

}  // namespace ZBase::detail
