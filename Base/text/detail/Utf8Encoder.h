#pragma once

#include <Base/platform/os/text/Utf8.h>
#include <Base/text/detail/AsciiRuns.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/TextKernels.h>

#include <algorithm>
#include <cstddef>
#include <limits>

namespace ZBase::detail {

// The parts of a conversion from wide text to UTF-8, for all its forms.

/// Units before the terminator, reading at most `length`; `length` 0 means terminated text.
inline std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    return Kernels().countUnits(source, length == 0 ? std::numeric_limits<std::size_t>::max() : length);
}

/// Octets that suffice for `units` units, without the terminator.
inline std::size_t Utf8Capacity(std::size_t units) {
    return CheckedProduct(units, 4);
}

/// Encodes `units` units, none of them 0, and a terminator into `destination`. Returns its address. The rest
/// of the capacity may have been written to. Any two surrogates make a character; a surrogate that is not
/// followed by another throws, whatever `replace` is.
char* EncodeUtf8(const unsigned short* source, std::size_t units, bool replace, char* destination);

// Units that are encoded one by one where a kernel stopped, and where it stops again and again, since calling
// it each time would cost more than it saves.
inline constexpr std::size_t kFewUnits = 16;
inline constexpr std::size_t kManyUnits = 2048;

/// What a kernel, which has done the front of a text, leaves of it. Returns the end of the octets.
template <class NextValue>
[[gnu::noinline]] char* EncodeRest(const unsigned short* source, std::size_t units, Progress done,
                                   char* destination, NextValue nextValue) {
    const unsigned short* const end = source + units;
    std::size_t slow = kFewUnits;
    for (;;) {
        source += done.read;
        destination += done.written;
        slow = done.read >= kFewUnits ? kFewUnits : std::min(2 * slow, kManyUnits);
        const unsigned short* const stop = source + std::min(slow, static_cast<std::size_t>(end - source));
        while (source < stop) {
            if (*source < 0x80) {
                const std::size_t ascii =
                    NarrowAsciiRun<true>(source, static_cast<std::size_t>(stop - source), destination);
                source += ascii;
                destination += ascii;
            } else {
                destination = os::PutUtf8(destination, nextValue(source));
            }
        }
        if (source == end) return destination;
        done = Kernels().encodeUtf8(source, static_cast<std::size_t>(end - source), destination);
    }
}

/// The same by the rules of `nextValue(source)`, which returns the value of the character at `source`, which
/// is not ASCII, and moves it past that.
template <class NextValue>
char* EncodeUnits(const unsigned short* source, std::size_t units, char* destination, NextValue nextValue) {
    const Progress done = Kernels().encodeUtf8(source, units, destination);
    char* const end = done.read == units ? destination + done.written
                                         : EncodeRest(source, units, done, destination, nextValue);
    *end = 0;
    return end;
}

}  // namespace ZBase::detail
