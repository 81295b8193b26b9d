#pragma once

#include <cstddef>

namespace ZLiteXML {

/// A character at the head of a terminated text.
struct Character {
    std::size_t octets;  // 0: what stands there is not UTF-8
    unsigned int value;
};

Character DecodeCharacter(const unsigned char* text);

/// How many octets at the head of a terminated text that is not UTF-8 belong together: a lead and as many of
/// the octets that it announces as are there, which `ZBase::UTF8ToWideChar` replaces by one character too.
std::size_t OctetsOfBadSequence(const unsigned char* text);

/// Whether XML can hold a character, escaped or not.
constexpr bool IsXMLCharacter(unsigned int value) {
    if (value < 0x20) return value == '\t' || value == '\n' || value == '\r';
    return value < 0xD800 || (value > 0xDFFF && value < 0xFFFE) || (value > 0xFFFF && value <= 0x10FFFF);
}

/// Whether a terminated UTF-8 text is the name of an element or attribute, as Expat has it: by the fourth
/// edition of XML 1.0, whose names every later reader takes too.
bool IsXMLName(const char* text);

}  // namespace ZLiteXML
