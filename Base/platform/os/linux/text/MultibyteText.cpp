// The C library's restartable calls carry a state from one call to the next. It holds the octets of an
// unfinished character, and in some encodings a pending character: a letter that may get an accent
// (TCVN5712-1), or the second of two characters of one code (BIG5-HKSCS, TSCII). The terminator, or the
// sequence that returns to the initial state, flushes it.

#include <Base/platform/os/shared/CountedOutput.h>
#include <Base/platform/os/text/MultibyteText.h>

#include <langinfo.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace ZBase::os {

namespace {

constexpr std::size_t kChunk = 256;
constexpr wchar_t kNoCharacter = -1;

bool IsSurrogate(wchar_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

// U+0000 would end the text; some encodings have it for an octet other than 0.
bool IsCharacter(wchar_t value) {
    return value > 0 && value <= 0x10FFFF && !IsSurrogate(value);
}

// False if one of the characters is invalid.
bool PutCharacters(const wchar_t* characters, std::size_t count, CountedOutput<unsigned short>& out) {
    for (const wchar_t* value = characters; value != characters + count; ++value) {
        if (!IsCharacter(*value)) return false;
        if (*value <= 0xFFFF) {
            out.Put(static_cast<unsigned short>(*value));
        } else {
            out.Put(static_cast<unsigned short>(0xD800 | (*value - 0x10000) >> 10));
            out.Put(static_cast<unsigned short>(0xDC00 | (*value & 0x3FF)));
        }
    }
    return true;
}

/// Octets of a piece of characters. When a character is pending and none has been written, the C library
/// reads the octet before the result, and takes a 0 for the end of the text: so there is one that is not 0.
class EncodedPiece {
public:
    bool Take(const wchar_t* source, std::size_t count, std::mbstate_t& state) {
        mText[0] = 1;
        mCount = wcsnrtombs(mText + 1, &source, count, sizeof mText - 1, &state);
        return mCount != kBadText;
    }

    /// Flushes the pending character and returns to the initial state.
    bool Finish(std::mbstate_t& state) {
        mCount = std::wcrtomb(mText + 1, 0, &state);
        if (mCount == kBadText) return false;
        --mCount;  // the terminator
        return true;
    }

    void PutTo(CountedOutput<char>& out) const {
        for (std::size_t i = 1; i <= mCount; ++i) out.Put(mText[i]);
    }

private:
    char mText[1 + kChunk * MB_LEN_MAX];
    std::size_t mCount = 0;
};

/// The characters of one octet.
struct Characters {
    void PutTo(CountedOutput<unsigned short>& out) const { PutCharacters(values, count, out); }

    wchar_t values[MB_LEN_MAX];
    std::size_t count = 0;
};

// Takes one octet and adds the characters that it completes; the terminator only if it ends the text. False
// when it is invalid in this state.
bool TakeOctet(const char* octet, std::mbstate_t& state, Characters& characters) {
    for (;;) {
        wchar_t value = kNoCharacter;
        const std::size_t taken = std::mbrtowc(&value, octet, 1, &state);
        if (taken == kBadText) return false;
        if (value == 0) return *octet == 0;
        // The octet was consumed, whether or not a character came out before it.
        const bool isTaken = taken != 0;
        if (value != kNoCharacter) {
            if (!IsCharacter(value) || characters.count == std::size(characters.values)) return false;
            characters.values[characters.count++] = value;
        } else if (!isTaken) {
            return false;
        }
        if (isTaken) return *octet != 0;
    }
}

/// Reads a text octet by octet, and detects at each octet whether a character ends with it.
class ReplacingDecoder {
public:
    ReplacingDecoder(const char* source, std::size_t length, CountedOutput<unsigned short>& out,
                     unsigned short replacement)
        : mpSource(source), mLength(length), mOut(out), mReplacement(replacement) {}

    void Run() {
        while (mStart != mLength) {
            if (!TakeCharacter()) {
                Finish();
                mOut.Put(mReplacement);
                ++mStart;
            }
        }
        Finish();
    }

private:
    // The shortest run of octets from `mStart` that is a whole number of characters.
    bool TakeCharacter() {
        Characters characters;
        std::mbstate_t state = mState;
        for (std::size_t end = mStart; end != mLength && end - mStart != MB_LEN_MAX;) {
            if (!TakeOctet(mpSource + end++, state, characters)) return false;
            if (CanEnd(state)) {
                // The C library skips a few codes without a character.
                if (characters.count == 0 && mWaiting.count == 0) return false;
                characters.PutTo(mOut);
                mStart = end;
                mState = state;
                return true;
            }
        }
        return false;
    }

    // Whether a text may end in this state. Sets `mWaiting` to the pending characters.
    bool CanEnd(std::mbstate_t state) {
        mWaiting.count = 0;
        return TakeOctet("", state, mWaiting);
    }

    // Returns to the initial state.
    void Finish() {
        if (CanEnd(mState)) mWaiting.PutTo(mOut);
        mState = {};
    }

    const char* mpSource;  // held, not owned
    std::size_t mLength;
    CountedOutput<unsigned short>& mOut;
    unsigned short mReplacement;
    std::size_t mStart = 0;   // of the next character
    std::mbstate_t mState{};  // before it
    Characters mWaiting;
};

// The character at `source`, which is moved past it; `kNoCharacter` for a lone surrogate.
wchar_t TakeCharacter(const unsigned short*& source) {
    const wchar_t value = *source++;
    if (!IsSurrogate(value)) return value;
    if (value >= 0xDC00 || (*source & 0xFC00) != 0xDC00) return kNoCharacter;
    return 0x10000 + ((value & 0x3FF) << 10) + (*source++ & 0x3FF);
}

}  // namespace

bool MultibyteIsUtf8() {
    return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
}

std::size_t LongestMultibyteCharacter() {
    return MB_CUR_MAX;
}

std::size_t MultibyteToWide(unsigned short* destination, std::size_t capacity, const char* source,
                            std::size_t length) {
    CountedOutput<unsigned short> out(destination, capacity);
    const char* const end = source + length + 1;
    std::mbstate_t state{};
    while (source != nullptr) {
        // The terminator was taken for a part of a character.
        if (source == end) return kBadText;
        // The C library searches for the end of the piece each time, so it is short; but it must contain a
        // whole character.
        wchar_t chunk[kChunk];
        const std::size_t size = std::min(kChunk, static_cast<std::size_t>(end - source));
        const std::size_t count = mbsnrtowcs(chunk, &source, size, kChunk, &state);
        if (count == kBadText || !PutCharacters(chunk, count, out)) return kBadText;
    }
    return out.Count();
}

std::size_t MultibyteToWideReplacing(unsigned short* destination, std::size_t capacity, const char* source,
                                     std::size_t length, unsigned short replacement) {
    CountedOutput<unsigned short> out(destination, capacity);
    ReplacingDecoder(source, length, out, replacement).Run();
    return out.Count();
}

std::size_t WideToMultibyte(char* destination, std::size_t capacity, const unsigned short* source,
                            std::size_t length) {
    CountedOutput<char> out(destination, capacity);
    const unsigned short* const end = source + length;
    std::mbstate_t state{};
    EncodedPiece piece;
    while (source != end) {
        wchar_t chunk[kChunk];
        std::size_t count = 0;
        for (; count != kChunk && source != end; ++count) {
            chunk[count] = TakeCharacter(source);
            if (chunk[count] == kNoCharacter) return kBadText;
        }
        if (!piece.Take(chunk, count, state)) return kBadText;
        piece.PutTo(out);
    }
    if (!piece.Finish(state)) return kBadText;
    piece.PutTo(out);
    return out.Count();
}

std::size_t WideToMultibyteReplacing(char* destination, std::size_t capacity, const unsigned short* source,
                                     std::size_t length, char replacement) {
    CountedOutput<char> out(destination, capacity);
    const unsigned short* const end = source + length;
    std::mbstate_t state{};
    EncodedPiece piece;
    const auto finish = [&] {
        if (piece.Finish(state)) piece.PutTo(out);
        state = {};
    };
    while (source != end) {
        const unsigned short* const start = source;
        const wchar_t value = TakeCharacter(source);
        std::mbstate_t next = state;
        if (value != kNoCharacter && piece.Take(&value, 1, next)) {
            piece.PutTo(out);
            state = next;
        } else {
            finish();
            for (const unsigned short* unit = start; unit != source; ++unit) out.Put(replacement);
        }
    }
    finish();
    return out.Count();
}

}  // namespace ZBase::os
