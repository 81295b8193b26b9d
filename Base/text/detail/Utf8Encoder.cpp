#include <Base/text/detail/UnicodeValues.h>
#include <Base/text/detail/Utf8Encoder.h>

namespace ZBase::detail {

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
