// What any processor can do: eight octets in one register. Only ASCII is taken.

#include <Base/text/detail/TextKernels.h>

#include <cstdint>
#include <cstring>

namespace ZBase::detail {

namespace {

constexpr std::size_t kBlock = 8;

std::size_t WidenAscii(const unsigned char* source, std::size_t length, unsigned short* out) {
    std::size_t done = 0;
    for (; length - done >= kBlock; done += kBlock) {
        unsigned char block[kBlock];
        std::memcpy(block, source + done, sizeof block);
        std::uint64_t octets;
        std::memcpy(&octets, block, sizeof octets);
        if ((octets & 0x8080808080808080) != 0) break;
        for (std::size_t i = 0; i != kBlock; ++i) out[done + i] = block[i];
    }
    for (; done != length && source[done] < 0x80; ++done) out[done] = source[done];
    return done;
}

std::size_t NarrowAscii(const unsigned short* source, std::size_t length, char* out) {
    std::size_t done = 0;
    for (; length - done >= kBlock; done += kBlock) {
        std::uint16_t block[kBlock];
        std::memcpy(block, source + done, sizeof block);
        std::uint64_t halves[2];
        std::memcpy(halves, block, sizeof halves);
        if (((halves[0] | halves[1]) & 0xFF80FF80FF80FF80) != 0) break;
        for (std::size_t i = 0; i != kBlock; ++i) out[done + i] = static_cast<char>(block[i]);
    }
    for (; done != length && source[done] < 0x80; ++done) out[done] = static_cast<char>(source[done]);
    return done;
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
