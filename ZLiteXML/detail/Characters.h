#pragma once

#include <cstddef>

namespace ZLiteXML {

/// A character at the start of a terminated text.
struct Character {
    std::size_t octets;  // 0: invalid UTF-8
    unsigned int value;
};

Character DecodeCharacter(const unsigned char* text);

/// The length of the invalid sequence at the start of a terminated text: a lead octet and as many of its
/// continuation octets as follow, which `ZBase::UTF8ToWideChar` also replaces by one character.
std::size_t OctetsOfBadSequence(const unsigned char* text);

/// Whether XML allows a character, escaped or not.
constexpr bool IsXMLCharacter(unsigned int value) {
    if (value < 0x20) return value == '\t' || value == '\n' || value == '\r';
    return value < 0xD800 || (value > 0xDFFF && value < 0xFFFE) || (value > 0xFFFF && value <= 0x10FFFF);
}

/// Whether a terminated UTF-8 text is the name of an element or attribute for Expat: by the fourth edition of
/// XML 1.0, whose names every later reader accepts too.
bool IsXMLName(const char* text);

}  // namespace ZLiteXML
