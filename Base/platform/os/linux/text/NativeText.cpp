#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/text/Utf8.h>

namespace ZBase::os {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsHigh(char32_t unit) {
    return (unit & 0xFC00) == 0xD800;
}
bool IsLow(char32_t unit) {
    return (unit & 0xFC00) == 0xDC00;
}
bool IsContinuation(char octet) {
    return (static_cast<unsigned char>(octet) & 0xC0) == 0x80;
}

// The character at `text`, which is moved past it: one octet of an invalid sequence.
char32_t NextCharacter(const char*& text) {
    const char32_t lead = static_cast<unsigned char>(*text++);
    if (lead < 0x80) return lead;
    const int more = lead >= 0xC2 && lead < 0xE0   ? 1
                     : (lead & 0xF0) == 0xE0       ? 2
                     : lead >= 0xF0 && lead < 0xF5 ? 3
                                                   : 0;
    if (more == 0) return kReplacement;
    char32_t value = lead & (0x3Fu >> more);
    for (int i = 0; i != more; ++i) {
        if (!IsContinuation(text[i])) return kReplacement;  // a terminator isn't one either
        value = value << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
    }
    constexpr char32_t smallest[] = {0, 0x80, 0x800, 0x10000};
    if (value < smallest[more] || value > 0x10FFFF || (value & 0xFFFFF800) == 0xD800) return kReplacement;
    text += more;
    return value;
}

}  // namespace

std::string ToNative(const unsigned short* text) {
    std::string out;
    while (*text != 0) {
        char32_t value = *text++;
        if (IsHigh(value) && IsLow(*text)) {
            value = 0x10000 + ((value & 0x3FF) << 10) + (*text++ & 0x3FFu);
        } else if (IsHigh(value) || IsLow(value)) {
            value = kReplacement;
        }
        char octets[4];
        out.append(octets, os::PutUtf8(octets, value));
    }
    return out;
}

std::basic_string<unsigned short> FromNative(const char* text) {
    std::basic_string<unsigned short> out;
    while (*text != 0) {
        const char32_t value = NextCharacter(text);
        if (value >= 0x10000) {
            out.push_back(static_cast<unsigned short>(0xD800 | (value - 0x10000) >> 10));
            out.push_back(static_cast<unsigned short>(0xDC00 | (value & 0x3FF)));
        } else {
            out.push_back(static_cast<unsigned short>(value));
        }
    }
    return out;
}

}  // namespace ZBase::os
