#include "TextStream.h"

#include <Base/ZBase.h>

#include <algorithm>
#include <bit>
#include <type_traits>
#include <utility>

namespace {

// The state of the locale's encoding can't be read. So a cut is made before an element that no encoding has
// inside a character or joins to the one before; letters and digits may be both. In a text without any, a cut
// is valid if both sides together convert to the same as the whole, and no character can extend from there to
// the end.
constexpr unsigned int kFirstDoubtful = 0x30;
constexpr std::size_t kLongestSearch = 65536;  // elements without such a cut among them
constexpr std::size_t kLongestCharacter = 16;  // elements, with all that is joined to it

template <class Text, class Convert>
std::size_t EndByTrial(const Text& text, Convert convert) {
    const auto whole = convert(text);
    for (std::size_t back = kLongestCharacter; back != 4 * kLongestCharacter; ++back) {
        const std::size_t end = text.size() - back;
        if (convert(text.substr(0, end)) + convert(text.substr(end)) == whole) return end;
    }
    return text.size();
}

template <class Text, class Convert>
std::size_t EndForLocale(const Text& text, Convert convert) {
    using Element = std::make_unsigned_t<std::conditional_t<sizeof(text[0]) == 1, char, short>>;
    for (std::size_t at = text.size(); at-- > 1;) {
        if (static_cast<Element>(text[at]) < kFirstDoubtful) return at;
    }
    return text.size() < kLongestSearch ? 0 : EndByTrial(text, convert);
}

// The reason of a failed conversion. ASCII's contains an offset, from the start of its piece.
std::string Reason(const ZBase::Message& failure, std::size_t done) {
    constexpr std::string_view mark = " at offset ";
    std::string reason = ZBase::FormatMessage(failure, 0).c_str();
    const std::size_t at = reason.rfind(mark);
    if (at == std::string::npos) return reason;
    const std::size_t digits = at + mark.size();
    const std::size_t end = std::min(reason.find_first_not_of("0123456789", digits), reason.size());
    return reason.replace(digits, end - digits,
                          std::to_string(std::stoull(reason.substr(digits, end - digits)) + done));
}

// Removes the first `end` elements from `held`, and returns the result of `convert` for them.
template <class Text, class Convert>
auto TakeOff(Text& held, std::size_t end, std::size_t& done, Convert convert) {
    try {
        auto converted = convert(std::basic_string_view<typename Text::value_type>(held).substr(0, end));
        held.erase(0, end);
        done += end;
        return converted;
    } catch (const ZBase::StringConversionException& failure) {
        throw BadText(Reason(failure, done));
    }
}

std::u16string FromUtf16(std::string_view octets) {
    std::u16string units(octets.size() / 2, u'\0');
    for (std::size_t i = 0; i != units.size(); ++i) {
        const auto low = static_cast<unsigned char>(octets[2 * i]);
        const auto high = static_cast<unsigned char>(octets[2 * i + 1]);
        units[i] = static_cast<char16_t>(low | high << 8);
    }
    return units;
}

std::string ToUtf16(std::u16string_view units) {
    std::string octets;
    octets.reserve(2 * units.size());
    for (const char16_t unit : units) {
        octets.push_back(static_cast<char>(unit & 0xFF));
        octets.push_back(static_cast<char>(unit >> 8));
    }
    return octets;
}

bool EndsInHighSurrogate(std::u16string_view units) {
    return !units.empty() && (units.back() & 0xFC00) == 0xD800;
}

}  // namespace

std::size_t WholeUtf8(std::string_view octets) {
    constexpr std::size_t longest = 6;  // octets of the longest sequence for the decoder
    const std::size_t first = octets.size() - std::min(octets.size(), longest - 1);
    for (std::size_t at = octets.size(); at-- > first;) {
        const auto octet = static_cast<unsigned char>(octets[at]);
        if ((octet & 0xC0) == 0x80) continue;
        const auto length = static_cast<std::size_t>(std::countl_one(octet));
        return length <= longest && at + length > octets.size() ? at : octets.size();
    }
    return octets.size();
}

TextConverter::TextConverter(const std::string& from, const std::string& to, bool replace)
    : mDecoder(from, replace), mEncoder(to, replace) {}

std::string TextConverter::Take(std::string_view octets, bool isLast) {
    TextDecoder decoder = mDecoder;
    TextEncoder encoder = mEncoder;
    try {
        return mEncoder.Take(mDecoder.Take(octets, isLast), isLast);
    } catch (const BadText&) {
        // Octet by octet, so that the first error is found, whichever side it is on.
        for (std::size_t i = 0; i != octets.size(); ++i)
            encoder.Take(decoder.Take(octets.substr(i, 1), false), false);
        throw;
    }
}

TextDecoder::TextDecoder(std::string encoding, bool replace)
    : mEncoding(std::move(encoding)), mReplace(replace) {}

std::u16string TextDecoder::Take(std::string_view octets, bool isLast) {
    mHeld += octets;
    if (isLast && mEncoding == "utf16le" && mHeld.size() % 2 != 0) {
        throw BadText("half a UTF-16 unit at the end");
    }
    return TakeOff(mHeld, isLast ? mHeld.size() : SafeEnd(), mDone,
                   [this](std::string_view text) { return Convert(text, mReplace); });
}

std::size_t TextDecoder::SafeEnd() const {
    if (mEncoding == "utf8") return WholeUtf8(mHeld);
    if (mEncoding == "utf16le") return mHeld.size() - mHeld.size() % 2;
    if (mEncoding == "ascii") return mHeld.size();
    return EndForLocale(mHeld, [this](std::string_view text) { return Convert(text, true); });
}

std::u16string TextDecoder::Convert(std::string_view octets, bool replace) const {
    if (mEncoding == "utf8") return ZBase::ToUTF16(octets, replace);
    if (mEncoding == "utf16le") return FromUtf16(octets);
    if (mEncoding == "ascii") return ZBase::ASCIIToUTF16(octets, replace);
    return ZBase::MultiByteToUTF16(octets, replace);
}

TextEncoder::TextEncoder(std::string encoding, bool replace)
    : mEncoding(std::move(encoding)), mReplace(replace) {}

std::string TextEncoder::Take(std::u16string_view units, bool isLast) {
    mHeld += units;
    return TakeOff(mHeld, isLast ? mHeld.size() : SafeEnd(), mDone,
                   [this](std::u16string_view text) { return Convert(text, mReplace); });
}

std::size_t TextEncoder::SafeEnd() const {
    if (mEncoding == "utf8") return mHeld.size() - (EndsInHighSurrogate(mHeld) ? 1 : 0);
    if (mEncoding == "utf16le" || mEncoding == "ascii") return mHeld.size();
    return EndForLocale(mHeld, [this](std::u16string_view text) { return Convert(text, true); });
}

std::string TextEncoder::Convert(std::u16string_view units, bool replace) const {
    if (mEncoding == "utf8") return ZBase::ToUTF8(units, replace);
    if (mEncoding == "utf16le") return ToUtf16(units);
    if (mEncoding == "ascii") return ZBase::UTF16ToASCII(units, replace);
    return ZBase::UTF16ToMultiByte(units, replace);
}
