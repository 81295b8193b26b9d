#include <Base/platform/os/MultibyteText.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <cstring>
#include <string>

namespace ZBase {

namespace {

constexpr char kReplacement = '?';

[[noreturn]] void ThrowNotAscii(const char* text, unsigned int value, int width, std::size_t offset) {
    detail::ThrowConversionFailure(
        (text + detail::HexDigits(value, width) + " at offset " + std::to_string(offset) + '.').c_str());
}

// The result of `convert(out, capacity)`, which gives the length of the whole text. Few encodings need more
// than the first capacity.
template <class Result, class Convert>
Result ConvertAll(std::size_t capacity, Convert convert) {
    for (;;) {
        Result result(capacity, nullptr);
        auto* out = detail::Writable(result);
        const std::size_t length = convert(out, capacity);
        if (length <= capacity) {
            out[length] = 0;
            return result;
        }
        capacity = length;
    }
}

}  // namespace

ReturnWString ASCIIToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    ReturnWString result(length, nullptr);
    unsigned short* out = detail::Writable(result);
    for (std::size_t i = 0; i != length; ++i) {
        const auto octet = static_cast<unsigned char>(source[i]);
        if (octet >= 0x80 && !replace) ThrowNotAscii("Invalid ASCII character 0x", octet, 2, i);
        out[i] = octet < 0x80 ? octet : static_cast<unsigned char>(kReplacement);
    }
    return result;
}

ReturnString WideCharToASCII(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t units = detail::CountUnits(source, 0);
    ReturnString result(units, nullptr);
    char* out = detail::Writable(result);
    for (std::size_t i = 0; i != units; ++i) {
        if (source[i] >= 0x80 && !replace) ThrowNotAscii("Non-ASCII codepoint U+", source[i], 4, i);
        out[i] = source[i] < 0x80 ? static_cast<char>(source[i]) : kReplacement;
    }
    return result;
}

ReturnWString MultiByteToWideChar(const char* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = std::strlen(source);
    return ConvertAll<ReturnWString>(length + 1, [=](unsigned short* out, std::size_t capacity) {
        const std::size_t units = os::MultibyteToWide(out, capacity, source, length);
        if (units != os::kBadText) return units;
        if (!replace) detail::ThrowConversionFailure("::mbstowcs() failed.");
        return os::MultibyteToWideReplacing(out, capacity, source, length, kReplacement);
    });
}

ReturnString WideCharToMultiByte(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t length = detail::CountUnits(source, 0);
    const std::size_t capacity = detail::CheckedProduct(length, os::LongestMultibyteCharacter());
    return ConvertAll<ReturnString>(capacity, [=](char* out, std::size_t room) {
        const std::size_t octets = os::WideToMultibyte(out, room, source, length);
        if (octets != os::kBadText) return octets;
        if (!replace) detail::ThrowConversionFailure("::wcstombs() failed.");
        return os::WideToMultibyteReplacing(out, room, source, length, kReplacement);
    });
}

}  // namespace ZBase
