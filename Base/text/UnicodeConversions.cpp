#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/UnicodeValues.h>
#include <Base/text/detail/Utf8Decoder.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <cstring>

namespace ZBase {

namespace detail {

void ThrowInvalidUnicodeValue(unsigned int value) {
    ThrowConversionFailure("ZBase::UnicodeValueToWideChar: Invalid UNICODE value U+", value, 4);
}

void ThrowInvalidWideChar(unsigned int unit) {
    ThrowConversionFailure("ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+", unit, 4);
}

}  // namespace detail

namespace {

// The failure names the unit at the read position, not the surrogate before it; kept for readers of that
// text.
[[noreturn]] void ThrowInvalidUtf16(unsigned int unit) {
    detail::ThrowConversionFailure("ZBase::UTF16ToUTF8: Invalid UNICODE value U+", unit, 4);
}

// The value of the character at `source`, which is moved past it. Only a proper pair may hold surrogates.
unsigned int NextUtf16Value(const unsigned short*& source) {
    const unsigned int unit = *source++;
    if (!detail::IsSurrogate(unit)) return unit;
    if (unit >= 0xDC00 || *source == 0) ThrowInvalidUtf16(*source);
    const unsigned int low = *source++;
    if ((low & 0xFC00) != 0xDC00) ThrowInvalidUtf16(*source);
    return ((unit & 0x3FF) << 10) + 0x10000 + (low & 0x3FF);
}

// Copies `count` units through `screen`, and writes a terminator. Returns its address.
template <class Screen>
unsigned short* CopyUnits(const unsigned short* source, std::uint64_t count, unsigned short* destination,
                          Screen screen) {
    for (std::uint64_t i = 0; i != count; ++i) {
        destination[i] = static_cast<unsigned short>(screen(source[i]));
    }
    destination[count] = 0;
    return destination + count;
}

}  // namespace

const unsigned short UNICODE_BYTE_ORDER_MARK[2] = {0xFEFF, 0};

ReturnWString UTF8ToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    detail::Unfinished<ReturnWString> result(length);
    return result.Finish(
        detail::DecodeUtf8(reinterpret_cast<const unsigned char*>(source), length, replace, result.Get()));
}

bool UTF8ToWideChar(const unsigned char* source, unsigned short* destination, std::uint64_t sourceLength,
                    bool replace) {
    if (source == nullptr) return true;
    if (destination == nullptr) return false;
    detail::DecodeUtf8(source, sourceLength, replace, destination);
    return true;
}

bool UTF8IsLeadingByte(char octet) {
    const auto value = static_cast<unsigned char>(octet);
    return value < 0x80 || (value & 0xC0) != 0;  // bit 7 alone is enough; kept for callers that rely on it
}

unsigned int UTF8TotalBytes(char octet) {
    if (!UTF8IsLeadingByte(octet)) detail::ThrowConversionFailure("Byte is not a leading byte");
    const unsigned int octets = detail::Utf8SequenceLength(static_cast<unsigned char>(octet));
    if (octets == 0) {
        // The octet is sign-extended, so eight digits are shown; kept for readers of that text.
        const int widened = static_cast<signed char>(octet);
        detail::ThrowConversionFailure("Invalid octet 0x", static_cast<unsigned int>(widened), 2);
    }
    return octets;
}

ReturnString WideCharToUTF8(const unsigned short* source, bool replace) {
    return WideCharToUTF8UsingLength(source, 0, replace);
}

ReturnString WideCharToUTF8UsingLength(const unsigned short* source, unsigned int length, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, length);
    detail::Unfinished<ReturnString> result(detail::Utf8Capacity(units));
    return result.Finish(detail::EncodeUtf8(source, units, replace, result.Get()));
}

ReturnWString UTF16ToWideChar(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    detail::Unfinished<ReturnWString> result(units);
    return result.Finish(CopyUnits(source, units, result.Get(), [replace](unsigned short unit) {
        return detail::UnicodeValueToWideChar(unit, replace);
    }));
}

ReturnUString WideCharToUTF16(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    detail::Unfinished<ReturnUString> result(units);
    return result.Finish(CopyUnits(source, units, result.Get(), [replace](unsigned short unit) {
        return detail::WideCharToUnicodeValue(unit, replace);
    }));
}

unsigned short* WideCharToUTF16(const unsigned short* source, unsigned short* destination,
                                std::uint64_t capacity, bool replace) {
    if (source == nullptr || destination == nullptr) return nullptr;
    std::uint64_t done = 0;
    for (; done + 1 < capacity && source[done] != 0; ++done) {
        destination[done] =
            static_cast<unsigned short>(detail::WideCharToUnicodeValue(source[done], replace));
    }
    destination[done] = 0;
    return destination;
}

ReturnString UTF16ToUTF8(const unsigned short* source) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    detail::Unfinished<ReturnString> result(detail::Utf8Capacity(units));
    return result.Finish(detail::EncodeUnits(source, units, result.Get(), NextUtf16Value));
}

}  // namespace ZBase
