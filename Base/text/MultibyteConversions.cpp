#include <Base/platform/os/MultibyteText.h>
#include <Base/text/MultibyteConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/Utf8Encoder.h>

#include <algorithm>
#include <cstring>
#include <string>

namespace ZBase {

namespace {

constexpr char kReplacement = '?';

[[noreturn]] void ThrowNotAscii(const char* text, unsigned int value, int width, std::size_t offset) {
    detail::ThrowConversionFailure(
        (text + detail::HexDigits(value, width) + " at offset " + std::to_string(offset) + '.').c_str());
}

// One character at a time; an octet that begins no character becomes a "?".
void ReplaceBadOctets(const char* source, std::size_t length, unsigned short* out) {
    for (std::size_t i = 0; i != length;) {
        int units = 0;
        const int octets = os::NextMultibyteCharacter(source + i, length - i, out, units);
        if (octets < 0) {
            *out++ = kReplacement;
            ++i;
        } else {
            out += units;
            i += static_cast<std::size_t>(octets);
        }
    }
    *out = 0;
}

// One character at a time; one that the locale can't hold becomes a "?" for each of its units.
void ReplaceBadUnits(const unsigned short* source, char* out) {
    while (*source != 0) {
        int units = 0;
        const int octets = os::NextWideCharacter(source, out, units);
        source += units;
        if (octets < 0) {
            out = std::fill_n(out, units, kReplacement);
        } else {
            out += octets;
        }
    }
    *out = 0;
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
    ReturnWString result(length + 1, nullptr);
    unsigned short* out = detail::Writable(result);
    if (os::MultibyteToWide(out, source, length + 1) == os::kBadText) {
        if (!replace) detail::ThrowConversionFailure("::mbstowcs() failed.");
        ReplaceBadOctets(source, length, out);
    }
    return result;
}

ReturnString WideCharToMultiByte(const unsigned short* source, bool replace) {
    if (source == nullptr) return nullptr;
    const std::size_t capacity =
        detail::CheckedProduct(detail::CountUnits(source, 0), os::LongestMultibyteCharacter());
    ReturnString result(capacity, nullptr);
    char* out = detail::Writable(result);
    if (os::WideToMultibyte(out, source, capacity + 1) == os::kBadText) {
        if (!replace) detail::ThrowConversionFailure("::wcstombs() failed.");
        ReplaceBadUnits(source, out);
    }
    return result;
}

}  // namespace ZBase
