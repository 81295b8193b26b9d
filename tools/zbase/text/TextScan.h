#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Scans a UTF-8 text of any length, piece by piece, up to its first flaw.
class TextScan {
public:
    /// With `isLast` nothing follows. After a flaw the rest is ignored.
    void Take(std::string_view octets, bool isLast);

    bool IsFlawed() const { return !mReason.empty(); }

    /// Why the text is not UTF-8; empty if it is.
    const std::string& Reason() const { return mReason; }

    // Of the whole text, or of the part before its flaw.
    std::size_t Octets() const { return mOctets; }
    std::size_t Characters() const { return mCharacters; }

    // The end of that part, counted from 1; the column in characters.
    std::size_t Line() const { return mLine; }
    std::size_t Column() const { return mColumn; }

private:
    void Count(std::string_view octets, std::size_t characters);

    std::string mHeld;
    std::string mReason;
    std::size_t mOctets = 0;
    std::size_t mCharacters = 0;
    std::size_t mLine = 1;
    std::size_t mColumn = 1;
};
