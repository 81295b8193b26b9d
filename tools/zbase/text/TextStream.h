#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>

// Texts of any length, converted piece by piece with the result that the whole text would have: the end of a
// piece that may be in the middle of a character is held back for the next one. The encodings are "utf8",
// "utf16le", "ascii" and "locale". Without `replace` bad text throws `BadText`; offsets in its reason count
// from the start of the whole.

/// Why a text can't be converted.
class BadText : public std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Decodes a text to UTF-16.
class TextDecoder {
public:
    TextDecoder(std::string encoding, bool replace);

    /// The units that are certain after these octets; with `isLast` all that was held back, too.
    std::u16string Take(std::string_view octets, bool isLast);

private:
    std::size_t SafeEnd() const;
    std::u16string Convert(std::string_view octets, bool replace) const;

    std::string mEncoding;
    bool mReplace;
    std::string mHeld;
    std::size_t mDone = 0;  // octets before the held ones
};

/// Encodes a text from UTF-16.
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
    std::size_t mDone = 0;  // units before the held ones
};

/// Converts a text from one encoding to another.
class TextConverter {
public:
    TextConverter(const std::string& from, const std::string& to, bool replace);

    /// The error is the first one in the text, wherever the pieces end. After it no piece is accepted.
    std::string Take(std::string_view octets, bool isLast);

private:
    TextDecoder mDecoder;
    TextEncoder mEncoder;
};

/// The length of a UTF-8 text without an unfinished sequence at its end.
std::size_t WholeUtf8(std::string_view octets);
