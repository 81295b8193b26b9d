#include <Base/platform/os/MultibyteText.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace ZBase::os {

namespace {

constexpr std::size_t kChunk = 256;
constexpr wchar_t kNoCharacter = -1;

bool IsSurrogate(wchar_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

// Writes a character as one or two units. Gives their number, or 0 when it has none or there is no room.
std::size_t PutUnits(wchar_t value, unsigned short* units, std::size_t room) {
    if (value < 0 || value > 0x10FFFF || IsSurrogate(value)) return 0;
    const std::size_t count = value > 0xFFFF ? 2 : 1;
    if (count > room) return 0;
    if (count == 1) {
        units[0] = static_cast<unsigned short>(value);
    } else {
        units[0] = static_cast<unsigned short>(0xD800 | (value - 0x10000) >> 10);
        units[1] = static_cast<unsigned short>(0xDC00 | (value & 0x3FF));
    }
    return count;
}

// The character at `source`, which is moved behind it; `kNoCharacter` for a surrogate without a partner.
wchar_t TakeCharacter(const unsigned short*& source) {
    const wchar_t value = *source++;
    if (!IsSurrogate(value)) return value;
    if (value >= 0xDC00 || (*source & 0xFC00) != 0xDC00) return kNoCharacter;
    return 0x10000 + ((value & 0x3FF) << 10) + (*source++ & 0x3FF);
}

// Some encodings have characters that are two wide ones, or that wait to see what follows. There the
// shortest run of octets that makes a text is the character.
int ShortestText(const char* source, std::size_t limit, wchar_t* text, std::size_t& length) {
    char octets[MB_LEN_MAX + 1];
    for (std::size_t count = 1; count <= limit; ++count) {
        std::memcpy(octets, source, count);
        octets[count] = 0;
        const char* position = octets;
        std::mbstate_t state{};
        length = std::mbsrtowcs(text, &position, 2, &state);
        if (length != kBadText && length != 0) return static_cast<int>(count);
    }
    return -1;
}

}  // namespace

std::size_t LongestMultibyteCharacter() {
    return MB_CUR_MAX;
}

std::size_t MultibyteToWide(unsigned short* destination, const char* source, std::size_t capacity) {
    std::mbstate_t state{};
    std::size_t units = 0;
    while (source != nullptr) {
        wchar_t chunk[kChunk];
        const std::size_t count = std::mbsrtowcs(chunk, &source, kChunk, &state);
        if (count == kBadText) return kBadText;
        for (std::size_t i = 0; i != count; ++i) {
            if (units == capacity) return units;
            const std::size_t put = PutUnits(chunk[i], destination + units, capacity - units);
            if (put == 0) return kBadText;
            units += put;
        }
    }
    if (units != capacity) destination[units] = 0;
    return units;
}

int NextMultibyteCharacter(const char* source, std::size_t limit, unsigned short* units, int& unitCount) {
    limit = std::min<std::size_t>(limit, MB_CUR_MAX);
    wchar_t text[2];
    std::size_t length = 1;
    std::mbstate_t state{};
    const std::size_t taken = std::mbrtowc(text, source, limit, &state);
    int octets = taken > limit ? -1 : static_cast<int>(taken);
    if (octets > 0 && std::mbsinit(&state) == 0) octets = ShortestText(source, limit, text, length);
    if (octets <= 0) return -1;

    unitCount = 0;
    for (std::size_t i = 0; i != length; ++i) {
        const std::size_t put =
            PutUnits(text[i], units + unitCount, static_cast<std::size_t>(octets - unitCount));
        if (put == 0) return -1;
        unitCount += static_cast<int>(put);
    }
    return octets;
}

std::size_t WideToMultibyte(char* destination, const unsigned short* source, std::size_t capacity) {
    std::mbstate_t state{};
    std::size_t octets = 0;
    const auto append = [&](const char* text, std::size_t count) {
        std::memcpy(destination + octets, text, std::min(count, capacity - octets));
        octets += std::min(count, capacity - octets);
    };
    while (*source != 0) {
        wchar_t chunk[kChunk];
        std::size_t length = 0;
        for (; length != kChunk && *source != 0; ++length) {
            chunk[length] = TakeCharacter(source);
            if (chunk[length] == kNoCharacter) return kBadText;
        }
        // When a character waits for the next one and nothing is written, the C library looks at the octet
        // before the result, and takes a 0 for the end of the text: it gets one that is not 0.
        char text[1 + kChunk * MB_LEN_MAX] = {1};
        const wchar_t* position = chunk;
        const std::size_t count = wcsnrtombs(text + 1, &position, length, sizeof text - 1, &state);
        if (count == kBadText) return kBadText;
        append(text + 1, count);
    }
    char end[2 * MB_LEN_MAX];  // what returns to the initial state, and the terminator
    const std::size_t count = std::wcrtomb(end, 0, &state);
    append(end, count - 1);
    const std::size_t length = octets;
    append("", 1);
    return length;
}

int NextWideCharacter(const unsigned short* source, char* octets, int& unitCount) {
    const unsigned short* end = source;
    const wchar_t value = TakeCharacter(end);
    unitCount = static_cast<int>(end - source);
    if (value == kNoCharacter) return -1;

    char text[2 * MB_LEN_MAX];
    std::mbstate_t state{};
    std::size_t length = std::wcrtomb(text, value, &state);
    if (length == kBadText) return -1;
    if (std::mbsinit(&state) == 0) length += std::wcrtomb(text + length, 0, &state) - 1;
    if (length == 0 || length > MB_CUR_MAX) return -1;
    std::memcpy(octets, text, length);
    return static_cast<int>(length);
}

}  // namespace ZBase::os
