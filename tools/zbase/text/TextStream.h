#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

// Texts of any length, converted piece by piece with the result that the whole text would have: what the end
// of a piece may have cut through is held back for the next one. The encodings are "utf8", "utf16le", "ascii"
// and "locale". Without `replace` bad text throws `BadText`; offsets in its reason count from the start of
// the whole.

/// Why a text can't be converted.
class BadText : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Makes UTF-16 of a text.
class TextDecoder {
public:
    TextDecoder(std::string encoding, bool replace);

    /// What the octets up to here surely mean; with `isLast` all that was left, too.
    std::u16string Take(std::string_view octets, bool isLast);

private:
    std::size_t SafeEnd() const;
    std::u16string Convert(std::string_view octets, bool replace) const;

    std::string mEncoding;
    bool mReplace;
    std::string mHeld;
    std::size_t mDone = 0;  // octets before those
};

/// Makes a text of UTF-16.
class TextEncoder {
public:
    TextEncoder(std::string encoding, bool replace);

    std::string Take(std::u16string_view units, bool isLast);

private:
    std::size_t SafeEnd() const;
    std::string Convert(std::u16string_view units, bool replace) const;

    std::string mEncoding;
    bool mReplace;
    std::u16string mHeld;
    std::size_t mDone = 0;  // units before those
};

/// Makes a text of one encoding a text of another.
class TextConverter {
public:
    TextConverter(const std::string& from, const std::string& to, bool replace);

    /// What stops it is what comes first in the text, wherever the pieces end. Then nothing can be taken any
    /// more.
    std::string Take(std::string_view octets, bool isLast);

private:
    TextDecoder mDecoder;
    TextEncoder mEncoder;
};

/// Octets of a UTF-8 text in front of a sequence at its end that may go on; all of them if there is none.
std::size_t WholeUtf8(std::string_view octets);
