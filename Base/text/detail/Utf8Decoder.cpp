#include <Base/text/detail/AsciiRuns.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/UnicodeValues.h>
#include <Base/text/detail/Utf8Decoder.h>

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

namespace ZBase::detail {

namespace {

// Octets that are decoded one by one where a kernel stopped, and where it stops again and again, since
// calling it each time would cost more than it saves.
constexpr std::uint64_t kFewOctets = 64;
constexpr std::uint64_t kManyOctets = 4096;

// Octets that give at least a whole step of units, with flaws replaced: six give one.
constexpr std::uint64_t kSpillOctets = 6 * kAsciiStep;

// The value of a sequence of two or three octets that has no flaw, or 0.
unsigned int ShortSequence(const unsigned char* source, std::uint64_t length) {
    const auto payload = [source](int i) { return source[i] & 0x3Fu; };
    const auto continues = [source](int i) { return (source[i] & 0xC0) == 0x80; };
    if ((source[0] & 0xE0) == 0xC0) {
        if (length < 2 || source[0] < 0xC2 || !continues(1)) return 0;
        return (source[0] & 0x1Fu) << 6 | payload(1);
    }
    if ((source[0] & 0xF0) != 0xE0 || length < 3 || !continues(1) || !continues(2)) return 0;
    const unsigned int value = (source[0] & 0x0Fu) << 12 | payload(1) << 6 | payload(2);
    return value < 0x800 || value > 0xFFFD || IsSurrogate(value) ? 0 : value;
}

// The value of the sequence at `position`, which is moved past it. A flaw gives U+FFFD or throws; an octet
// that ends a sequence early is not part of it.
unsigned int NextValue(const unsigned char* source, std::uint64_t length, std::uint64_t& position,
                       bool replace) {
    const unsigned char lead = source[position++];
    const unsigned int octets = Utf8SequenceLength(lead);
    if (octets == 0) {
        if (replace) return kReplacementValue;
        ThrowConversionFailure("ZBase::UTF8ToWideChar: Invalid octet 0x", lead, 2);
    }
    if (octets == 1) return lead;

    unsigned int value = lead & (0x7Fu >> octets);
    for (unsigned int i = 1; i != octets; ++i) {
        if (position == length) {
            if (replace) return kReplacementValue;
            ThrowConversionFailure("ZBase::UTF8ToWideChar: Expect more continuation octet data.");
        }
        const unsigned char octet = source[position];
        if ((octet & 0xC0) != 0x80) {
            if (replace) return kReplacementValue;
            ThrowConversionFailure("ZBase::UTF8ToWideChar: Invalid continuation octet 0x", octet, 2);
        }
        value = value << 6 | (octet & 0x3Fu);
        ++position;
    }

    constexpr unsigned int smallest[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    // An overlong form of U+FFFD is U+FFFD, which replacing gives anyway; kept for callers in strict mode.
    if (value < smallest[octets] && value != kReplacementValue) {
        if (replace) return kReplacementValue;
        ThrowConversionFailure("ZBase::UTF8ToWideChar: Overlong sequence for UNICODE value U+", value, 4);
    }
    return value;
}

// Writes a value as one or two units. Returns the position after them.
unsigned short* PutUnits(unsigned short* out, unsigned int value, bool replace) {
    if (value >= 0x10000 && value <= 0x10FFFF) {
        const unsigned int offset = value - 0x10000;
        *out++ = static_cast<unsigned short>(0xD800 | offset >> 10);
        *out++ = static_cast<unsigned short>(0xDC00 | (offset & 0x3FF));
        return out;
    }
    if (IsSurrogate(value)) {
        if (!replace) ThrowInvalidUnicodeValue(value);
        value = kReplacementValue;
    }
    *out++ = UnicodeValueToWideChar(value, replace);
    return out;
}

}  // namespace

unsigned int Utf8SequenceLength(unsigned char octet) {
    const int ones = std::countl_one(octet);
    if (ones == 0) return 1;
    return ones == 1 || ones > 6 ? 0 : static_cast<unsigned int>(ones);
}

namespace {

// Decodes one by one up to `stop`, or only past the character that a kernel may have stopped at.
void DecodeSlowly(const unsigned char* source, std::uint64_t length, std::uint64_t stop, bool onlyOne,
                  bool replace, std::uint64_t& position, unsigned short*& destination) {
    // What is written too far up to here is overwritten later.
    const std::uint64_t spillStop =
        replace && length > kSpillOctets ? std::min(stop, length - kSpillOctets) : 0;
    while (position < stop) {
        const unsigned char* next = source + position;
        if (*next < 0x80) {
            const std::size_t ascii = position < spillStop
                                          ? WidenAsciiRun<true>(next, spillStop - position, destination)
                                          : WidenAsciiRun<false>(next, stop - position, destination);
            position += ascii;
            destination += ascii;
        } else if (const unsigned int value = ShortSequence(next, length - position); value != 0) {
            *destination++ = static_cast<unsigned short>(value);
            position += value < 0x800 ? 2 : 3;
        } else {
            destination = PutUnits(destination, NextValue(source, length, position, replace), replace);
            if (onlyOne) return;
        }
    }
}

// Decodes what a kernel, which has done the front, leaves. Returns the end of the units.
[[gnu::noinline]] unsigned short* DecodeRest(const unsigned char* source, std::uint64_t length, bool replace,
                                             Progress done, unsigned short* destination) {
    std::uint64_t slow = kFewOctets;
    for (std::uint64_t position = 0;;) {
        position += done.read;
        destination += done.written;
        slow = done.read >= kFewOctets ? kFewOctets : std::min(2 * slow, kManyOctets);
        const std::uint64_t stop = position + std::min(slow, length - position);
        DecodeSlowly(source, length, stop, slow == kFewOctets, replace, position, destination);
        if (position == length) return destination;
        done = Kernels().decodeUtf8(source + position, length - position, destination);
    }
}

}  // namespace

unsigned short* DecodeUtf8(const unsigned char* source, std::uint64_t length, bool replace,
                           unsigned short* destination) {
    const Progress done = Kernels().decodeUtf8(source, length, destination);
    unsigned short* const end = done.read == length ? destination + done.written
                                                    : DecodeRest(source, length, replace, done, destination);
    *end = 0;
    return end;
}

}  // namespace ZBase::detail
