#include "Characters.h"
#include "NameCharacters.h"

#include <algorithm>
#include <iterator>

namespace ZLiteXML {

namespace {

template <std::size_t Count>
bool IsIn(unsigned int value, const CharacterRange (&ranges)[Count]) {
    const auto* behind = std::upper_bound(
        std::begin(ranges), std::end(ranges), value,
        [](unsigned int sought, const CharacterRange& range) { return sought < range.first; });
    return behind != std::begin(ranges) && value <= std::prev(behind)->last;
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

std::size_t OctetsOfBadSequence(const unsigned char* text) {
    const unsigned int lead = text[0];
    if (lead < 0xC0 || lead > 0xFD) return 1;
    const std::size_t announced = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : lead < 0xF8 ? 4 : lead < 0xFC ? 5 : 6;
    std::size_t octets = 1;
    while (octets < announced && (text[octets] & 0xC0u) == 0x80) ++octets;
    return octets;
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
