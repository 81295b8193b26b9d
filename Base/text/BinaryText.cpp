#include <Base/text/BinaryText.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>
#include <Base/text/detail/TextKernels.h>

#include <algorithm>
#include <charconv>
#include <cstddef>

namespace ZBase {

namespace {

unsigned short Digit(unsigned int value) {
    return static_cast<unsigned short>(detail::kUpperDigits[value]);
}

bool IsPrintable(unsigned char octet) {
    return octet >= 0x20 && octet <= 0x7E;
}

std::size_t ByteCount(const void* data, int length) {
    return data == nullptr || length <= 0 ? 0 : static_cast<std::size_t>(length);
}

}  // namespace

ReturnWString WideChar2String(unsigned short unit) {
    const std::string digits = detail::HexDigits(unit, 4);
    ReturnWString result(digits.size(), nullptr);
    std::copy(digits.begin(), digits.end(), detail::Writable(result));
    return result;
}

ReturnWString Binary2String(const void* data, int length) {
    const auto* octets = static_cast<const unsigned char*>(data);
    const std::size_t count = ByteCount(data, length);
    detail::Unfinished<ReturnWString> result(detail::CheckedProduct(count, 2));
    detail::Kernels().putDigits(octets, count, result.Get());
    return result.Finish(result.Get() + 2 * count);
}

ReturnWString Binary2OctString(const void* data, int length) {
    const auto* octets = static_cast<const unsigned char*>(data);
    const std::size_t count = ByteCount(data, length);
    std::size_t escaped = 0;
    for (std::size_t i = 0; i != count; ++i) escaped += IsPrintable(octets[i]) ? 0 : 1;
    ReturnWString result(count + detail::CheckedProduct(escaped, 3), nullptr);
    unsigned short* out = detail::Writable(result);
    for (std::size_t i = 0; i != count; ++i) {
        if (IsPrintable(octets[i])) {
            *out++ = octets[i];
        } else {
            *out++ = '\\';
            for (int shift = 6; shift >= 0; shift -= 3) *out++ = Digit(octets[i] >> shift & 7u);
        }
    }
    return result;
}

std::string Char2Hex(char octet) {
    return detail::HexDigits(static_cast<unsigned char>(octet), 2);
}

std::string UrlEncode(const std::string& text) {
    const detail::TextKernels& kernels = detail::Kernels();
    const auto* octets = reinterpret_cast<const unsigned char*>(text.data());
    const std::size_t added = detail::CheckedProduct(kernels.countReserved(octets, text.size()), 2);
    std::string result(text.size() + added, '\0');
    kernels.escapeReserved(octets, text.size(), result.data());
    return result;
}

std::string UrlDecode(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i != text.size(); ++i) {
        if (text[i] != '%') {
            result += text[i];
            continue;
        }
        unsigned int value = 0;
        const char* const digits = text.data() + i + 1;
        const char* const end = text.data() + std::min(i + 3, text.size());
        const auto parsed = std::from_chars(digits, end, value, 16);
        if (parsed.ptr != digits + 2)
            detail::ThrowConversionFailure(
                "ZBase::UrlDecode: No two hexadecimal digits behind % at offset 0x", i, 1);
        result += static_cast<char>(value);
        i += 2;
    }
    return result;
}

}  // namespace ZBase
