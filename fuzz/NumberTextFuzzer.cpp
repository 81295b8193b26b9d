// The input is read as a number by every parser, and is a number that is printed: narrow and wide agree with
// each other and with the C library's 64-bit functions, cut to 32 bits.
//
// For: Base/text/NumberText.cpp Base/text/NearestDouble.cpp Base/text/detail/PowersOfTen.cpp

#include <Base/text/NearestDouble.h>
#include <Base/text/NumberText.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

#include "fuzz/Check.h"

namespace {

using Units = std::basic_string<unsigned short>;

void CheckDecimal(const std::string& text, const Units& wide) {
    const long long value = std::strtoll(text.c_str(), nullptr, 10);
    fuzz::Check(ZBase::DecimalToInt64(text.c_str()) == value, "DecimalToInt64");
    fuzz::Check(ZBase::DecimalToInt64(wide.c_str()) == value, "DecimalToInt64, wide");
    const auto cut = static_cast<int>(
        std::clamp<long long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
    fuzz::Check(ZBase::DecimalToInt(text.c_str()) == cut, "DecimalToInt");
    fuzz::Check(ZBase::DecimalToInt(wide.c_str()) == cut, "DecimalToInt, wide");
}

// The result of `strtoull` in 32 bits: a larger magnitude saturates, a smaller one is negated within them.
std::string ExpectedHex(const std::string& text, bool lenient, unsigned int& value) {
    char* end = nullptr;
    const unsigned long long wide = std::strtoull(text.c_str(), &end, 16);
    const bool negative = std::find(text.c_str(), const_cast<const char*>(end), '-') != end;
    const unsigned long long magnitude = negative ? 0 - wide : wide;
    value = magnitude > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<unsigned int>(wide);
    if (end == text.c_str() || (!lenient && *end != 0)) return "failed to parse";
    return value == 0xFFFFFFFF ? "overflow while parsing" : "";
}

template <class Text>
void CheckHex(const Text& text, bool lenient, const std::string& expectedFailure, unsigned int expected) {
    unsigned int value = 0;
    const std::string failure =
        fuzz::Failure([&] { value = ZBase::HexToUnsignedInt(text.c_str(), lenient); });
    if (expectedFailure.empty()) {
        fuzz::Check(failure.empty() && value == expected, "HexToUnsignedInt");
    } else {
        fuzz::Check(failure.rfind("ZBase::HexToUnsignedInt: " + expectedFailure + " '", 0) == 0,
                    "failure of HexToUnsignedInt");
    }
}

void CheckDouble(const Units& wide) {
    const std::string failure = fuzz::Failure([&] { ZBase::LocaleNeutralStringToDouble(wide.c_str()); });
    fuzz::Check(failure.empty() || failure.rfind("Cannot convert string \"", 0) == 0, "double parser");
}

// The grammar, which is more than that of the C library; the value may be off by its last bits.
void CheckDoubleValue(const std::string& text, const Units& wide) {
    std::size_t at = 0;
    const auto digit = [&] { return at != text.size() && text[at] >= '0' && text[at] <= '9'; };
    while (at != text.size() && (std::strchr(" \t\n\v\f\r+", text[at]) != nullptr)) ++at;
    const bool isNegative = at != text.size() && text[at] == '-';
    at += isNegative ? 1 : 0;
    std::string number;
    while (digit()) number += text[at++];
    if (at != text.size() && text[at] == '.') {
        number += text[at++];
        while (digit()) number += text[at++];
    }
    unsigned int exponent = 0;
    bool isSmall = false;
    if (at != text.size() && (text[at] == 'e' || text[at] == 'E')) {
        ++at;
        isSmall = at != text.size() && text[at] == '-';
        at += at != text.size() && (text[at] == '-' || text[at] == '+') ? 1 : 0;
        while (digit()) exponent = exponent * 10 + static_cast<unsigned int>(text[at++] - '0');
    }
    const bool isGood = at == text.size() && !text.empty();
    double value = 0;
    const std::string failure =
        fuzz::Failure([&] { value = ZBase::LocaleNeutralStringToDouble(wide.c_str()); });
    fuzz::Check(failure.empty() == isGood, "what the double parser accepts");
    if (!isGood || exponent > 200 || number.size() > 40) return;
    if (number.find('.') == std::string::npos) number += '.';
    const std::string plain = "0" + number + "0e" + (isSmall ? "-" : "") + std::to_string(exponent);
    const double expected = std::strtod(plain.c_str(), nullptr);
    fuzz::Check(std::signbit(value) == isNegative, "sign of a double");
    fuzz::Check(std::fabs(std::fabs(value) - expected) <= expected * 1e-13, "value of a double");
}

std::string Printed(const char* format, long long value) {
    char text[64];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

template <class Narrow, class Wide>
void CheckPrinted(const std::string& expected, const Narrow& narrow, const Wide& wide) {
    fuzz::Check(narrow.c_str() == expected, "printed number");
    fuzz::Check(wide.c_str() == Units(expected.begin(), expected.end()), "printed number, wide");
}

void CheckPrinting(std::int64_t value) {
    const int cut = static_cast<int>(value);
    const long long pattern = static_cast<unsigned int>(cut);
    CheckPrinted(Printed("%lld", cut), ZBase::ToDecimalString(cut), ZBase::ToDecimalWString(cut));
    CheckPrinted(Printed("%lld", value), ZBase::ToDecimal64String(value), ZBase::ToDecimal64WString(value));
    CheckPrinted(Printed("%llX", pattern), ZBase::ToHexUpperString(cut), ZBase::ToHexUpperWString(cut));
    CheckPrinted(Printed("%llx", pattern), ZBase::ToHexLowerString(cut), ZBase::ToHexLowerWString(cut));

    double bytes = static_cast<double>(static_cast<std::uint64_t>(value));
    const char* const units[] = {"Bytes", "KB", "MB", "GB", "TB", "PB", "EB"};
    std::size_t unit = 0;
    for (; bytes >= 1024; bytes /= 1024) ++unit;
    char size[64];
    std::snprintf(size, sizeof size, "%.2f%s", bytes, units[unit]);
    fuzz::Check(ZBase::GetHumanReadableSize(static_cast<std::uint64_t>(value)) == size, "readable size");
}

// The shortest text is read back as the same number; the C library has none that is shorter.
void CheckShortest(double value) {
    const std::string text = ZBase::ShortestText(value);
    const std::optional<double> back = ZBase::NearestDouble(text);
    const bool isNan = std::isnan(value);
    fuzz::Check(
        back && (isNan ? std::isnan(*back) : *back == value && std::signbit(*back) == std::signbit(value)),
        "text of a double");
    if (isNan || std::isinf(value)) return;
    char printed[64];
    for (int precision = 1; precision != 18; ++precision) {
        std::snprintf(printed, sizeof printed, "%.*e", precision - 1, value);
        if (std::strtod(printed, nullptr) == value) break;
    }
    fuzz::Check(text.size() <= std::strlen(printed), "length of the text of a double");
}

// What the C library reads of the whole text, without white space, a plus and hexadecimal digits.
void CheckNearest(const std::string& text) {
    char* end = nullptr;
    const double expected = std::strtod(text.c_str(), &end);
    const bool isPlain =
        text.find_first_of(" \t\n\v\f\rxX(") == std::string::npos && !text.empty() && text[0] != '+';
    const std::optional<double> value = ZBase::NearestDouble(text);
    if (value) {
        fuzz::Check(*end == 0, "a double with text behind it");
        fuzz::Check(std::isnan(expected)
                        ? std::isnan(*value)
                        : *value == expected && std::signbit(*value) == std::signbit(expected),
                    "nearest double");
    } else {
        fuzz::Check(!isPlain || *end != 0, "a double that is refused");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string text(reinterpret_cast<const char*>(data), size);
    text.resize(text.find('\0') == std::string::npos ? size : text.find('\0'));
    Units wide;
    for (const char octet : text) wide += static_cast<unsigned char>(octet);

    CheckDecimal(text, wide);
    for (const bool lenient : {false, true}) {
        unsigned int value = 0;
        const std::string failure = ExpectedHex(text, lenient, value);
        CheckHex(text, lenient, failure, value);
        CheckHex(wide, lenient, failure, value);
    }
    CheckDouble(wide);
    CheckDoubleValue(text, wide);
    CheckNearest(text);
    std::int64_t number = 0;
    std::memcpy(&number, data, std::min(size, sizeof number));
    CheckPrinting(number);
    double value = 0;
    std::memcpy(&value, &number, sizeof value);
    CheckShortest(value);
    fuzz::Check(ZBase::DecimalToInt(static_cast<const char*>(nullptr)) == 0 &&
                    ZBase::DecimalToInt64(static_cast<const unsigned short*>(nullptr)) == 0,
                "null");
    return 0;
}
