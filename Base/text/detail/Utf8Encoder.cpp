#include <Base/platform/os/Utf8.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/UnicodeValues.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace ZBase::detail {

namespace {

constexpr std::size_t kBlockUnits = 8;

// Copies the ASCII units in front. Gives their number.
std::size_t CopyAscii(const unsigned short* source, std::size_t units, char* destination) {
    std::size_t done = 0;
    for (; units - done >= kBlockUnits; done += kBlockUnits) {
        std::uint16_t block[kBlockUnits];
        std::memcpy(block, source + done, sizeof block);
        std::uint64_t halves[2];
        std::memcpy(halves, block, sizeof halves);
        if (((halves[0] | halves[1]) & 0xFF80FF80FF80FF80) != 0) break;
        for (std::size_t i = 0; i != kBlockUnits; ++i) destination[done + i] = static_cast<char>(block[i]);
    }
    for (; done != units && source[done] < 0x80; ++done) destination[done] = static_cast<char>(source[done]);
    return done;
}

}  // namespace

std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    std::size_t units = 0;
    while ((length == 0 || units != length) && source[units] != 0) ++units;
    return units;
}

std::size_t Utf8Capacity(std::size_t units) {
    return CheckedProduct(units, 4);
}

void EncodeUtf8(const unsigned short* source, std::size_t units, bool replace, char* destination) {
    for (std::size_t i = 0; i != units;) {
        if (source[i] < 0x80) {
            const std::size_t copied = CopyAscii(source + i, units - i, destination);
            i += copied;
            destination += copied;
            continue;
        }
        unsigned int value = WideCharToUnicodeValue(source[i++], replace);
        if (IsSurrogate(value)) {
            // The unit behind is screened before it is judged as a partner: in strict mode U+FFFE throws.
            const unsigned int partner = i == units ? 0 : WideCharToUnicodeValue(source[i++], replace);
            if (!IsSurrogate(partner)) ThrowInvalidWideChar(value);
            value = ((value & 0x3FF) << 10) + 0x10000 + (partner & 0x3FF);
        }
        destination = os::PutUtf8(destination, value);
    }
    *destination = 0;
}

}  // namespace ZBase::detail
