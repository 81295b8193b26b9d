#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/TextKernels.h>
#include <Base/text/detail/UnicodeValues.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <limits>

namespace ZBase::detail {

std::size_t CountUnits(const unsigned short* source, std::size_t length) {
    return Kernels().countUnits(source, length == 0 ? std::numeric_limits<std::size_t>::max() : length);
}

std::size_t Utf8Capacity(std::size_t units) {
    return CheckedProduct(units, 4);
}

char* EncodeUtf8(const unsigned short* source, std::size_t units, bool replace, char* destination) {
    const unsigned short* const end = source + units;
    return EncodeUnits(source, units, destination, [=](const unsigned short*& next) {
        const unsigned int value = WideCharToUnicodeValue(*next++, replace);
        if (!IsSurrogate(value)) return value;
        // The next unit is checked before it is tested as a partner: in strict mode U+FFFE throws.
        const unsigned int partner = next == end ? 0 : WideCharToUnicodeValue(*next++, replace);
        if (!IsSurrogate(partner)) ThrowInvalidWideChar(value);
        return ((value & 0x3FF) << 10) + 0x10000 + (partner & 0x3FF);
    });
}

}  // namespace ZBase::detail
