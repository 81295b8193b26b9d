#include <Base/text/UnicodeText.h>

#include <Base/text/UnicodeConversions.h>
#include <Base/text/detail/ConversionFailure.h>
#include <Base/text/detail/UnicodeValues.h>

#include <bit>
#include <cstdint>
#include <cstring>
#include <memory>

namespace ZBase {

namespace {

struct Sequence {
    std::size_t octets;
    std::size_t units;
    bool isFlaw;  // then it is what one U+FFFD replaces
};

// The sequence at `at`, by the rules of the decoder.
Sequence SequenceAt(std::string_view text, std::size_t at) {
    const auto lead = static_cast<unsigned char>(text[at]);
    const int ones = std::countl_one(lead);
    if (ones == 0) return {1, 1, false};
    if (ones == 1 || ones > 6) return {1, 1, true};
    const auto length = static_cast<std::size_t>(ones);
    unsigned int value = lead & (0x7Fu >> length);
    for (std::size_t i = 1; i != length; ++i) {
        if (at + i == text.size()) return {i, 1, true};
        const auto octet = static_cast<unsigned char>(text[at + i]);
        if ((octet & 0xC0) != 0x80) return {i, 1, true};
        value = value << 6 | (octet & 0x3Fu);
    }
    constexpr unsigned int smallest[] = {0, 0, 0x80, 0x800, 0x10000, 0x200000, 0x4000000};
    if (value == detail::kReplacementValue) return {length, 1, false};  // overlong or not
    if (value < smallest[length] || detail::IsSurrogate(value) || value > 0x10FFFF) return {length, 1, true};
    if (value == 0xFFFE || value == 0xFFFF) return {length, 1, true};
    return {length, value < 0x10000 ? 1u : 2u, false};
}

// The length of the ASCII run at `at`.
std::size_t AsciiOctets(std::string_view text, std::size_t at) {
    std::size_t end = at;
    for (std::uint64_t block; text.size() - end >= sizeof block; end += sizeof block) {
        std::memcpy(&block, text.data() + end, sizeof block);
        if ((block & 0x8080808080808080) != 0) break;
    }
    while (end != text.size() && static_cast<unsigned char>(text[end]) < 0x80) ++end;
    return end - at;
}

template <class StopsAtFlaw>
UTF8Scan Scan(std::string_view text, StopsAtFlaw stopsAtFlaw) {
    UTF8Scan scan{true, 0, 0, 0};
    while (scan.octets != text.size()) {
        const std::size_t ascii = AsciiOctets(text, scan.octets);
        scan.octets += ascii;
        scan.characters += ascii;
        scan.units += ascii;
        if (scan.octets == text.size()) break;
        const Sequence sequence = SequenceAt(text, scan.octets);
        scan.isWhole = scan.isWhole && !sequence.isFlaw;
        if (sequence.isFlaw && stopsAtFlaw()) break;
        scan.octets += sequence.octets;
        ++scan.characters;
        scan.units += sequence.units;
    }
    return scan;
}

void AppendUTF8(std::string& text, unsigned int value) {
    const auto put = [&](unsigned int octet) { text.push_back(static_cast<char>(octet)); };
    if (value < 0x80) {
        put(value);
        return;
    }
    if (value < 0x800) {
        put(0xC0 | value >> 6);
    } else {
        if (value < 0x10000) {
            put(0xE0 | value >> 12);
        } else {
            put(0xF0 | value >> 18);
            put(0x80 | (value >> 12 & 0x3F));
        }
        put(0x80 | (value >> 6 & 0x3F));
    }
    put(0x80 | (value & 0x3F));
}

}  // namespace

UTF8Scan ScanUTF8(std::string_view text) noexcept {
    return Scan(text, [] { return true; });
}

std::u16string ToUTF16(std::string_view text, bool replace) {
    const std::size_t units = Scan(text, [] { return false; }).units;
    const auto decoded = std::make_unique_for_overwrite<unsigned short[]>(text.size() + 1);
    UTF8ToWideChar(reinterpret_cast<const unsigned char*>(text.data()), decoded.get(), text.size(), replace);
    return std::u16string(decoded.get(), decoded.get() + units);
}

std::string ToUTF8(std::u16string_view text, bool replace) {
    std::string result;
    result.reserve(text.size());
    for (std::size_t i = 0; i != text.size(); ++i) {
        unsigned int value = text[i];
        const bool isHigh = value >= 0xD800 && value <= 0xDBFF;
        if (isHigh && i + 1 != text.size() && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            value = 0x10000 + ((value & 0x3FF) << 10 | (text[++i] & 0x3FFu));
        } else if (detail::IsSurrogate(value) || value >= 0xFFFE) {
            if (!replace) detail::ThrowConversionFailure("ZBase::ToUTF8: Invalid UNICODE value U+", value, 4);
            value = detail::kReplacementValue;
        }
        AppendUTF8(result, value);
    }
    return result;
}

}  // namespace ZBase
