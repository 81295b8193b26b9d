#include <Base/text/BinaryText.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/ResultText.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>

namespace ZBase {

namespace {

unsigned short Digit(unsigned int value) {
    return static_cast<unsigned short>(detail::kUpperDigits[value]);
}

bool IsPrintable(unsigned char octet) {
    return octet >= 0x20 && octet <= 0x7E;
}

// RFC 3986, unreserved characters, in every locale.
constexpr bool IsUnreserved(unsigned char octet) {
    return (octet >= '0' && octet <= '9') || (octet >= 'A' && octet <= 'Z') ||
           (octet >= 'a' && octet <= 'z') || octet == '~' || octet == '-' || octet == '_' || octet == '.';
}

// What stands for each octet in a URL, and how long that is.
struct Escapes {
    char texts[256][4];
    unsigned char sizes[256];
};

constexpr Escapes MakeEscapes() {
    Escapes escapes{};
    for (unsigned int octet = 0; octet != 256; ++octet) {
        char* const text = escapes.texts[octet];
        if (IsUnreserved(static_cast<unsigned char>(octet))) {
            text[0] = static_cast<char>(octet);
            escapes.sizes[octet] = 1;
        } else {
            text[0] = '%';
            text[1] = detail::kUpperDigits[octet >> 4];
            text[2] = detail::kUpperDigits[octet & 0xF];
            escapes.sizes[octet] = 3;
        }
    }
    return escapes;
}

constexpr Escapes kEscapes = MakeEscapes();

std::size_t EscapedSize(const std::string& text) {
    // Four sums that do not wait for each other.
    std::size_t sizes[4] = {};
    const auto size = [&text](std::size_t i) { return kEscapes.sizes[static_cast<unsigned char>(text[i])]; };
    std::size_t i = 0;
    for (; text.size() - i >= 4; i += 4) {
        for (std::size_t lane = 0; lane != 4; ++lane) sizes[lane] += size(i + lane);
    }
    for (; i != text.size(); ++i) sizes[0] += size(i);
    return sizes[0] + sizes[1] + sizes[2] + sizes[3];
}

// The two digits of each octet.
struct DigitPairs {
    unsigned short rows[256][2];
};

constexpr DigitPairs MakeDigitPairs() {
    DigitPairs pairs{};
    for (unsigned int octet = 0; octet != 256; ++octet) {
        pairs.rows[octet][0] = static_cast<unsigned char>(detail::kUpperDigits[octet >> 4]);
        pairs.rows[octet][1] = static_cast<unsigned char>(detail::kUpperDigits[octet & 0xF]);
    }
    return pairs;
}

constexpr DigitPairs kPairs = MakeDigitPairs();

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
    unsigned short* out = result.Get();
    for (std::size_t i = 0; i != count; ++i, out += 2) std::memcpy(out, kPairs.rows[octets[i]], 4);
    *out = 0;
    return result.Finish(out);
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
    std::string result(EscapedSize(text), '\0');
    char* out = result.data();
    const char* next = text.data();
    // Four octets at once as long as three characters follow, whose octets will stand where the rest went.
    for (std::size_t left = text.size(); left > 3; --left) {
        const auto octet = static_cast<unsigned char>(*next++);
        std::memcpy(out, kEscapes.texts[octet], 4);
        out += kEscapes.sizes[octet];
    }
    for (; next != text.data() + text.size(); ++next) {
        const auto octet = static_cast<unsigned char>(*next);
        out = std::copy_n(kEscapes.texts[octet], kEscapes.sizes[octet], out);
    }
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
                "ZBase::UrlDecode: No two hexadecimal digits behind % at offset 0x",
                static_cast<unsigned int>(i), 1);
        result += static_cast<char>(value);
        i += 2;
    }
    return result;
}

}  // namespace ZBase
