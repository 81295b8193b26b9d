// What any processor can do: eight octets in one register. Only ASCII is taken.

#include <Base/text/detail/AsciiRuns.h>
#include <Base/text/detail/TextKernels.h>

namespace ZBase::detail {

namespace {

std::size_t WidenAscii(const unsigned char* source, std::size_t length, unsigned short* out) {
    return WidenAsciiRun<false>(source, length, out);
}

std::size_t NarrowAscii(const unsigned short* source, std::size_t length, char* out) {
    return NarrowAsciiRun<false>(source, length, out);
}

Progress DecodeUtf8(const unsigned char* source, std::size_t length, unsigned short* out) {
    const std::size_t done = WidenAscii(source, length, out);
    return {done, done};
}

Progress EncodeUtf8(const unsigned short* source, std::size_t units, char* out) {
    const std::size_t done = NarrowAscii(source, units, out);
    return {done, done};
}

std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    std::size_t units = 0;
    while (units != length && source[units] != 0) ++units;
    return units;
}

constexpr TextKernels kKernels{"plain", DecodeUtf8, EncodeUtf8, WidenAscii, NarrowAscii, CountUnits};

}  // namespace

const TextKernels* PlainKernels() {
    return &kKernels;
}

}  // namespace ZBase::detail
