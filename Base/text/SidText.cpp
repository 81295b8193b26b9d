#include <Base/text/SidText.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>

namespace ZBase {

namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kSubAuthoritySize = 4;
constexpr unsigned short kDash = '-';

std::uint64_t AuthorityOf(const unsigned char* sid) {
    std::uint64_t authority = 0;
    for (int i = 2; i != 8; ++i) authority = authority << 8 | sid[i];
    return authority;
}

std::uint32_t SubAuthorityOf(const unsigned char* sid, std::size_t index) {
    const unsigned char* octets = sid + kHeaderSize + kSubAuthoritySize * index;
    std::uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | octets[i];
    return value;
}

/// The fields after the dashes of a text, one after the other; empty ones when there are no more.
class DashFields {
public:
    explicit DashFields(const WideString& text) : mText(text), mPosition(text.find(kDash)) {}

    /// The number that the next field begins with, as `scanf` reads an unsigned one: after white space and a
    /// sign, a number that is too large being the largest; 0 if there is none.
    std::uint64_t TakeNumber() {
        if (mPosition == WideString::npos) return 0;
        const std::size_t start = mPosition + 1;
        mPosition = mText.find(kDash, start);
        const std::size_t end = std::min(mPosition, mText.size());
        return Scan(mText.data() + start, mText.data() + end);
    }

private:
    static bool IsSpace(unsigned short unit) { return unit == ' ' || (unit >= '\t' && unit <= '\r'); }

    static std::uint64_t Scan(const unsigned short* unit, const unsigned short* end) {
        constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();
        while (unit != end && IsSpace(*unit)) ++unit;
        if (unit != end && *unit == '+') ++unit;
        std::uint64_t value = 0;
        for (; unit != end && *unit >= '0' && *unit <= '9'; ++unit) {
            const std::uint64_t digit = *unit - std::uint64_t{'0'};
            value = value > (largest - digit) / 10 ? largest : 10 * value + digit;
        }
        return value;
    }

    const WideString& mText;
    std::size_t mPosition;  // of the dash before the next field
};

}  // namespace

ReturnWString SidBinaryToWString(const unsigned char* sid, std::uint64_t size) {
    if (sid == nullptr || size == 0 || sid[1] == 0) return ReturnWString(nullptr);
    std::string text = "S-" + std::to_string(sid[0]) + '-' + std::to_string(AuthorityOf(sid));
    for (std::size_t i = 0; i != sid[1]; ++i) text += '-' + std::to_string(SubAuthorityOf(sid, i));
    const WideString wide(text.begin(), text.end());
    return ReturnWString(wide.c_str());
}

bool SidWStringToBinary(const WideString& text, unsigned char*& sid, std::uint64_t& size) {
    sid = nullptr;
    size = 0;
    if (text.empty()) return false;

    // A text with fewer than two dashes wraps to 254 or 255 sub-authorities; kept for callers that rely on
    // it.
    const auto dashes = static_cast<std::size_t>(std::count(text.begin(), text.end(), kDash));
    const auto count = static_cast<unsigned char>(dashes - 2);
    const std::size_t octets = kHeaderSize + kSubAuthoritySize * count;
    sid = new unsigned char[octets];
    size = octets;

    DashFields fields(text);
    unsigned char* out = sid;
    *out++ = static_cast<unsigned char>(fields.TakeNumber());
    *out++ = count;
    const std::uint64_t authority = fields.TakeNumber();
    for (int shift = 40; shift >= 0; shift -= 8) *out++ = static_cast<unsigned char>(authority >> shift);
    while (out != sid + octets) {
        const std::uint64_t value = fields.TakeNumber();
        for (int shift = 0; shift != 32; shift += 8) *out++ = static_cast<unsigned char>(value >> shift);
    }
    return true;
}

}  // namespace ZBase
