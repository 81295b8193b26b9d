#include "Characters.h"

namespace ZLiteXML {

namespace {

struct Range {
    unsigned int first;
    unsigned int last;
};

// As XML 1.0, fifth edition, has them.
constexpr Range kNameStart[] = {
    {':', ':'},       {'A', 'Z'},       {'_', '_'},       {'a', 'z'},
    {0xC0, 0xD6},     {0xD8, 0xF6},     {0xF8, 0x2FF},    {0x370, 0x37D},
    {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F}, {0x2C00, 0x2FEF},
    {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF},
};
constexpr Range kNameFurther[] = {
    {'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040},
};

template <std::size_t Count>
bool IsIn(unsigned int value, const Range (&ranges)[Count]) {
    for (const Range& range : ranges) {
        if (value >= range.first && value <= range.last) return true;
    }
    return false;
}

constexpr unsigned int kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};  // by number of octets

}  // namespace

Character DecodeCharacter(const unsigned char* text) {
    const unsigned int lead = text[0];
    if (lead < 0x80) return {1, lead};
    const std::size_t octets = lead < 0xC0 ? 0 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : 0;
    if (octets == 0) return {0, lead};
    unsigned int value = lead & (0x7Fu >> octets);
    for (std::size_t index = 1; index < octets; ++index) {
        if ((text[index] & 0xC0u) != 0x80) return {0, lead};
        value = value << 6 | (text[index] & 0x3Fu);
    }
    const bool valid = value >= kSmallest[octets] && value <= 0x10FFFF && (value < 0xD800 || value > 0xDFFF);
    return {valid ? octets : 0, valid ? value : lead};
}

bool IsXMLName(const char* text) {
    const auto* at = reinterpret_cast<const unsigned char*>(text);
    if (*at == 0) return false;
    for (bool first = true; *at != 0; first = false) {
        const Character character = DecodeCharacter(at);
        if (character.octets == 0) return false;
        const bool allowed =
            IsIn(character.value, kNameStart) || (!first && IsIn(character.value, kNameFurther));
        if (!allowed) return false;
        at += character.octets;
    }
    return true;
}

}  // namespace ZLiteXML
