#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/text/NumberText.h>
#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/Digits.h>
#include <Base/text/detail/PowersOfTen.h>
#include <Base/text/detail/ResultText.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <iomanip>
#include <iterator>
#include <limits>
#include <sstream>

namespace ZBase {

namespace {

// A null text counts as an empty one.
constexpr char kNoText[] = "";
constexpr unsigned short kNoWideText[] = {0};

const char* OrEmpty(const char* text) {
    return text == nullptr ? kNoText : text;
}
const unsigned short* OrEmpty(const unsigned short* text) {
    return text == nullptr ? kNoWideText : text;
}

template <class Result, class Ch, unsigned int Base>
Result FormatInteger(std::uint64_t magnitude, bool negative, const char* digits) {
    Ch text[33];
    Ch* first = std::end(text);
    do {
        *--first = static_cast<Ch>(digits[magnitude % Base]);
        magnitude /= Base;
    } while (magnitude != 0);
    if (negative) *--first = '-';
    const auto length = static_cast<std::size_t>(std::end(text) - first);
    detail::Unfinished<Result> result(length);
    return result.Finish(std::copy_n(first, length, result.Get()));
}

template <class Result, class Ch>
Result FormatDecimal(std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    return FormatInteger<Result, Ch, 10>(value < 0 ? 0 - bits : bits, value < 0, detail::kUpperDigits);
}

template <class Result, class Ch>
Result FormatHex(int value, const char* digits) {
    return FormatInteger<Result, Ch, 16>(static_cast<unsigned int>(value), false, digits);
}

// White space as in the "C" locale, whatever the process has set.
template <class Ch>
bool IsSpace(Ch unit) {
    return unit == ' ' || (unit >= '\t' && unit <= '\r');
}

template <class Ch>
bool IsDigit(Ch unit) {
    return unit >= '0' && unit <= '9';
}

// The value of a digit up to base 16, or 16.
template <class Ch>
unsigned int DigitValue(Ch unit) {
    if (IsDigit(unit)) return static_cast<unsigned int>(unit - '0');
    if (unit >= 'A' && unit <= 'F') return static_cast<unsigned int>(unit - 'A') + 10;
    if (unit >= 'a' && unit <= 'f') return static_cast<unsigned int>(unit - 'a') + 10;
    return 16;
}

// Skips white space and one sign. True for "-".
template <class Ch>
bool SkipToDigits(const Ch*& text) {
    while (IsSpace(*text)) ++text;
    const bool negative = *text == '-';
    if (negative || *text == '+') ++text;
    return negative;
}

// Skips digits. Returns their value, or `kTooLarge` if it is more than `limit`.
constexpr std::uint64_t kTooLarge = std::numeric_limits<std::uint64_t>::max();

template <class Ch>
std::uint64_t ReadDigits(const Ch*& text, unsigned int base, std::uint64_t limit) {
    std::uint64_t value = 0;
    for (; DigitValue(*text) < base; ++text) {
        const unsigned int digit = DigitValue(*text);
        value = value > (limit - digit) / base ? kTooLarge : value * base + digit;
    }
    return value;
}

template <class Number, class Ch>
Number ReadDecimal(const Ch* text) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<Number>::max());
    const bool negative = SkipToDigits(text);
    const std::uint64_t value = ReadDigits(text, 10, largest);
    if (!negative) return static_cast<Number>(value == kTooLarge ? largest : value);
    return value == kTooLarge ? std::numeric_limits<Number>::min() : -static_cast<Number>(value);
}

[[noreturn]] void ThrowHexFailure(const char* reason, const char* text) {
    detail::ThrowConversionFailure((std::string(reason) + text + "'.").c_str());
}

[[noreturn]] void ThrowHexFailure(const char* reason, const unsigned short* text) {
    WideString message(UTF8ToWideChar(reason, true).c_str());
    message += text;
    message += "'."_w;
    detail::ThrowConversionFailure(message.c_str());
}

// A `strtoul` with 32 bits. For text that is no number `text` is not moved.
template <class Ch>
unsigned int ReadHex(const Ch*& text) {
    const Ch* position = text;
    const bool negative = SkipToDigits(position);
    const bool hasPrefix = position[0] == '0' && (position[1] == 'x' || position[1] == 'X');
    if (hasPrefix && DigitValue(position[2]) < 16) position += 2;
    if (DigitValue(*position) == 16) return 0;

    constexpr unsigned int largest = std::numeric_limits<unsigned int>::max();
    const std::uint64_t value = ReadDigits(position, 16, largest);
    text = position;
    if (value == kTooLarge) return largest;
    const auto bits = static_cast<unsigned int>(value);
    return negative ? 0 - bits : bits;
}

// A bare "0x" is a 0 followed by "x", which only the lenient form takes.
template <class Ch>
unsigned int HexValue(const Ch* text, bool lenient) {
    const Ch* end = text;
    const unsigned int value = ReadHex(end);
    if (end == text || (!lenient && *end != 0)) {
        ThrowHexFailure("ZBase::HexToUnsignedInt: failed to parse '", text);
    }
    // "FFFFFFFF" itself counts as overflow; kept for callers that use that value for errors.
    if (value == std::numeric_limits<unsigned int>::max()) {
        ThrowHexFailure("ZBase::HexToUnsignedInt: overflow while parsing '", text);
    }
    return value;
}

// Skips white space and "+" in any mix, then one "-". Returns the sign.
int SkipToMantissa(const unsigned short*& text) {
    while (IsSpace(*text) || *text == '+') ++text;
    if (*text != '-') return 1;
    ++text;
    return -1;
}

// Each step rounds; the result is that of these steps, not the nearest `double`.
double ReadMantissa(const unsigned short*& text) {
    double value = 0.0;
    for (; IsDigit(*text); ++text) value = value * 10 + (*text - '0');
    if (*text == '.') {
        ++text;
        double scale = 0.1;
        for (; IsDigit(*text); ++text) {
            value = value + (*text - '0') * scale;
            scale = scale * 0.1;
        }
    }
    return value;
}

// Skips a sign and digits, each optional. The value wraps at 32 bits.
std::int32_t ReadExponent(const unsigned short*& text) {
    const bool negative = *text == '-';
    if (negative || *text == '+') ++text;
    std::uint32_t value = 0;
    for (; IsDigit(*text); ++text) value = value * 10 + static_cast<std::uint32_t>(*text - '0');
    return static_cast<std::int32_t>(negative ? 0 - value : value);
}

[[noreturn]] void ThrowNoDouble(const unsigned short* text) {
    errno = EINVAL;
    WideString message("Cannot convert string \""_w);
    message += text;
    message += "\" to double."_w;
    detail::ThrowConversionFailure(message.c_str());
}

}  // namespace

ReturnString ToDecimalString(int value) {
    return FormatDecimal<ReturnString, char>(value);
}
ReturnWString ToDecimalWString(int value) {
    return FormatDecimal<ReturnWString, unsigned short>(value);
}
ReturnString ToDecimal64String(std::int64_t value) {
    return FormatDecimal<ReturnString, char>(value);
}
ReturnWString ToDecimal64WString(std::int64_t value) {
    return FormatDecimal<ReturnWString, unsigned short>(value);
}
ReturnString ToHexUpperString(int value) {
    return FormatHex<ReturnString, char>(value, detail::kUpperDigits);
}
ReturnWString ToHexUpperWString(int value) {
    return FormatHex<ReturnWString, unsigned short>(value, detail::kUpperDigits);
}
ReturnString ToHexLowerString(int value) {
    return FormatHex<ReturnString, char>(value, detail::kLowerDigits);
}
ReturnWString ToHexLowerWString(int value) {
    return FormatHex<ReturnWString, unsigned short>(value, detail::kLowerDigits);
}

int DecimalToInt(const unsigned short* text) {
    return ReadDecimal<int>(OrEmpty(text));
}
int DecimalToInt(const char* text) {
    return ReadDecimal<int>(OrEmpty(text));
}
std::int64_t DecimalToInt64(const unsigned short* text) {
    return ReadDecimal<std::int64_t>(OrEmpty(text));
}
std::int64_t DecimalToInt64(const char* text) {
    return ReadDecimal<std::int64_t>(OrEmpty(text));
}

unsigned int HexToUnsignedInt(const unsigned short* text, bool lenient) {
    return HexValue(OrEmpty(text), lenient);
}
unsigned int HexToUnsignedInt(const char* text, bool lenient) {
    return HexValue(OrEmpty(text), lenient);
}

double LocaleNeutralStringToDouble(const unsigned short* text) {
    const unsigned short* position = OrEmpty(text);
    if (*position == 0) ThrowNoDouble(position);
    const int sign = SkipToMantissa(position);
    double value = ReadMantissa(position);
    if (*position == 'e' || *position == 'E') {
        ++position;
        value = value * detail::PowerOfTen(ReadExponent(position));
    }
    if (*position != 0) ThrowNoDouble(text);
    return value * sign;
}

std::string GetHumanReadableSize(std::uint64_t bytes) {
    static constexpr const char* units[] = {"Bytes", "KB", "MB", "GB", "TB", "PB", "EB", "ZB", "YB"};
    auto value = static_cast<double>(bytes);
    std::size_t unit = 0;
    while (value >= 1024.0 && unit + 1 < std::size(units)) {
        value *= 0.0009765625;
        ++unit;
    }
    std::ostringstream text;
    text << std::fixed << std::setprecision(2) << value << units[unit];
    return text.str();
}

}  // namespace ZBase
