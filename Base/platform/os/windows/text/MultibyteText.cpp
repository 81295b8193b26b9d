// The C library's locale names a code page, and the system converts by it. The C library's own calls carry
// one unit at a time and know no pairs.

#include <Base/platform/os/shared/CountedOutput.h>
#include <Base/platform/os/text/MultibyteText.h>
#include <Base/platform/os/windows/WideText.h>

#include <locale.h>
#include <windows.h>

#include <algorithm>
#include <cstdlib>

namespace ZBase::os {

namespace {

constexpr unsigned int kLocaleC = 0;  // in which octets and units up to 255 are the same
constexpr int kMostOctets = 8;        // of one character, in any code page
constexpr int kMostUnits = 4;
constexpr std::size_t kMostAtOnce = 0x3FFFFFFF;

unsigned int CodePage() {
    return ___lc_codepage_func();
}

// In these the system refuses the flags by which it tells of what it can't convert.
bool IsUnicode(unsigned int page) {
    return page == CP_UTF8 || page == 54936;
}

/// One character.
template <class Unit, int kMost>
struct Converted {
    Unit units[kMost];
    int count = 0;          // of what it became
    std::size_t taken = 0;  // of what it was; 0 if it is none
};
using WideCharacter = Converted<wchar_t, kMostUnits>;
using NarrowCharacter = Converted<char, kMostOctets>;

// How many octets the character has that begins with this one.
std::size_t OctetsOf(unsigned int page, const char* source) {
    const auto lead = static_cast<unsigned char>(*source);
    if (lead < 0x80) return 1;
    if (page == CP_UTF8) return lead < 0xC2 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    if (page == 54936) return static_cast<unsigned char>(source[1]) - 0x30u < 10 ? 4 : 2;
    return IsDBCSLeadByteEx(page, lead) ? 2 : 1;
}

WideCharacter Decode(unsigned int page, const char* source, std::size_t length) {
    WideCharacter character;
    const std::size_t octets = page == kLocaleC ? 1 : OctetsOf(page, source);
    if (octets > length) return character;
    if (page == kLocaleC || static_cast<unsigned char>(*source) < 0x80) {
        character.units[0] = static_cast<unsigned char>(*source);
        character.count = 1;
    } else {
        character.count = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, source, static_cast<int>(octets),
                                              character.units, kMostUnits);
        // U+0000 would end the text; there may be octets other than 0 that stand for it.
        for (int i = 0; i != character.count; ++i) {
            if (character.units[i] == 0) return character;
        }
    }
    if (character.count > 0) character.taken = octets;
    return character;
}

bool IsSurrogate(wchar_t unit, unsigned int kind) {
    return (unit & 0xFC00u) == kind;
}

NarrowCharacter Encode(unsigned int page, const unsigned short* source) {
    NarrowCharacter character;
    const wchar_t* const wide = ToSystem(source);
    const bool isPair = IsSurrogate(wide[0], 0xD800) && IsSurrogate(wide[1], 0xDC00);
    const bool isLone = !isPair && (wide[0] & 0xF800u) == 0xD800u;
    if (isLone || (page == kLocaleC && *source > 0xFF)) return character;
    if (page == kLocaleC || *source < 0x80) {
        character.units[0] = static_cast<char>(*source);
        character.count = 1;
    } else {
        BOOL isOther = FALSE;
        const bool isUnicode = IsUnicode(page);
        character.count =
            WideCharToMultiByte(page, isUnicode ? 0 : WC_NO_BEST_FIT_CHARS, wide, isPair ? 2 : 1,
                                character.units, kMostOctets, nullptr, isUnicode ? nullptr : &isOther);
        if (isOther != FALSE) return character;
    }
    if (character.count > 0) character.taken = isPair ? 2 : 1;
    return character;
}

template <class Unit, class Character>
void PutCharacter(const Character& character, CountedOutput<Unit>& out) {
    for (int i = 0; i != character.count; ++i) out.Put(static_cast<Unit>(character.units[i]));
}

// `onBad` is told of the place of what is no character, and gives whether to go on and behind how much.
template <class OnBad>
std::size_t ToWide(unsigned short* destination, std::size_t capacity, const char* source, std::size_t length,
                   OnBad onBad) {
    const unsigned int page = CodePage();
    CountedOutput<unsigned short> out(destination, capacity);
    for (std::size_t at = 0; at != length;) {
        const WideCharacter character = Decode(page, source + at, length - at);
        if (character.taken != 0) {
            PutCharacter(character, out);
            at += character.taken;
        } else {
            if (!onBad(out)) return kBadText;
            ++at;
        }
    }
    return out.Count();
}

template <class OnBad>
std::size_t ToMultibyte(char* destination, std::size_t capacity, const unsigned short* source,
                        std::size_t length, OnBad onBad) {
    const unsigned int page = CodePage();
    CountedOutput<char> out(destination, capacity);
    for (std::size_t at = 0; at != length;) {
        const NarrowCharacter character = Encode(page, source + at);
        if (character.taken != 0) {
            PutCharacter(character, out);
            at += character.taken;
        } else {
            if (!onBad(out)) return kBadText;
            ++at;
        }
    }
    return out.Count();
}

// Whole texts go to the system at once. False where it can't say whether all was converted.
bool AtOnce(unsigned short* destination, std::size_t capacity, const char* source, std::size_t length,
            std::size_t& count) {
    const unsigned int page = CodePage();
    if (page == kLocaleC || length == 0 || length > kMostAtOnce) return false;
    const int room = static_cast<int>(std::min(capacity, kMostAtOnce));
    const int made = MultiByteToWideChar(page, MB_ERR_INVALID_CHARS, source, static_cast<int>(length),
                                         ToSystem(destination), room);
    count = static_cast<std::size_t>(std::max(made, 0));
    return room != 0 && made > 0 && std::find(destination, destination + made, 0) == destination + made;
}

bool AtOnce(char* destination, std::size_t capacity, const unsigned short* source, std::size_t length,
            std::size_t& count) {
    const unsigned int page = CodePage();
    if (page == kLocaleC || length == 0 || length > kMostAtOnce) return false;
    const bool isUnicode = IsUnicode(page);
    const int room = static_cast<int>(std::min(capacity, kMostAtOnce));
    BOOL isOther = FALSE;
    const int made = WideCharToMultiByte(page, isUnicode ? WC_ERR_INVALID_CHARS : WC_NO_BEST_FIT_CHARS,
                                         ToSystem(source), static_cast<int>(length), destination, room,
                                         nullptr, isUnicode ? nullptr : &isOther);
    count = static_cast<std::size_t>(std::max(made, 0));
    return room != 0 && made > 0 && isOther == FALSE;
}

}  // namespace

bool MultibyteIsUtf8() {
    return CodePage() == CP_UTF8;
}

std::size_t LongestMultibyteCharacter() {
    return static_cast<std::size_t>(MB_CUR_MAX);
}

std::size_t MultibyteToWide(unsigned short* destination, std::size_t capacity, const char* source,
                            std::size_t length) {
    std::size_t count = 0;
    if (AtOnce(destination, capacity, source, length, count)) return count;
    return ToWide(destination, capacity, source, length,
                  [](CountedOutput<unsigned short>&) { return false; });
}

std::size_t MultibyteToWideReplacing(unsigned short* destination, std::size_t capacity, const char* source,
                                     std::size_t length, unsigned short replacement) {
    return ToWide(destination, capacity, source, length, [replacement](CountedOutput<unsigned short>& out) {
        out.Put(replacement);
        return true;
    });
}

std::size_t WideToMultibyte(char* destination, std::size_t capacity, const unsigned short* source,
                            std::size_t length) {
    std::size_t count = 0;
    if (AtOnce(destination, capacity, source, length, count)) return count;
    return ToMultibyte(destination, capacity, source, length, [](CountedOutput<char>&) { return false; });
}

// Each unit of a pair that the locale can't hold comes here: the second one is alone then.
std::size_t WideToMultibyteReplacing(char* destination, std::size_t capacity, const unsigned short* source,
                                     std::size_t length, char replacement) {
    return ToMultibyte(destination, capacity, source, length, [replacement](CountedOutput<char>& out) {
        out.Put(replacement);
        return true;
    });
}

}  // namespace ZBase::os
