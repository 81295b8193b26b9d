// The input is read as a number by every parser: narrow and wide agree with each other and with the C
// library's 64-bit parsers, cut to 32 bits.

#include <Base/text/NumberText.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
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
    return 0;
}
