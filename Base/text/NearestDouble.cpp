#include <Base/text/NearestDouble.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace ZBase {

namespace {

// Whether the digits of a number, which is not 0, mean one of at least 1. Called only for numbers outside the
// range of all doubles, on either side.
bool IsLarge(std::string_view number) {
    constexpr long long kBeyondAll = std::numeric_limits<long long>::max() / 4;
    const std::size_t exponentAt = std::min(number.find_first_of("eE"), number.size());
    const std::string_view digits = number.substr(0, exponentAt);
    long long exponent = 0;
    if (exponentAt != number.size()) {
        std::string_view text = number.substr(exponentAt + 1);
        if (text.starts_with('+')) text.remove_prefix(1);
        const bool isNegative = text.starts_with('-');
        const auto parsed = std::from_chars(text.data(), text.data() + text.size(), exponent);
        if (parsed.ec != std::errc() || exponent > kBeyondAll || exponent < -kBeyondAll) return !isNegative;
    }
    const std::size_t point = std::min(digits.find('.'), digits.size());
    const std::size_t first = digits.find_first_of("123456789");
    // The position of the first digit: 1 right before the point, 0 right after it.
    const long long place =
        first < point ? static_cast<long long>(point - first) : -static_cast<long long>(first - point) + 1;
    return place + exponent > 0;
}

}  // namespace

std::optional<double> NearestDouble(std::string_view text) noexcept {
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, value);
    if (parsed.ptr != end || text.empty()) return std::nullopt;
    if (parsed.ec == std::errc()) return value;
    if (parsed.ec != std::errc::result_out_of_range) return std::nullopt;
    const bool isNegative = text.front() == '-';
    value = IsLarge(text.substr(isNegative ? 1 : 0)) ? std::numeric_limits<double>::infinity() : 0.0;
    return isNegative ? -value : value;
}

std::string ShortestText(double value) {
    char text[32];  // the longest is "-2.2250738585072014e-308"
    return std::string(text, std::to_chars(text, text + sizeof text, value).ptr);
}

}  // namespace ZBase
