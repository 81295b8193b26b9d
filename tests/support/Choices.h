#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace test {

/// Octets as a sequence of choices, which a program of operations is made from; zeros behind the last one.
class Choices {
public:
    Choices(const std::uint8_t* bytes, std::size_t size) : mpNext(bytes), mpEnd(bytes + size) {}
    bool IsOver() const { return mpNext == mpEnd; }
    unsigned int Below(unsigned int limit) { return IsOver() ? 0 : *mpNext++ % limit; }
    bool Flag() { return Below(2) == 1; }
    unsigned short Short() { return static_cast<unsigned short>(Below(256) << 8 | Below(256)); }
    std::uint32_t Word() { return static_cast<std::uint32_t>(Short()) << 16 | Short(); }

    /// Lower-case letters, mostly few.
    std::string Text() {
        const unsigned int kind = Below(8);
        const unsigned int length = kind == 0 ? 0 : kind < 6 ? Below(16) : Below(140);
        std::string text;
        for (unsigned int i = 0; i != length; ++i) text += static_cast<char>('a' + (length + i) % 26);
        return text;
    }

    /// Any octets, as many as the next one says.
    std::string Octets() {
        std::string octets;
        for (unsigned int left = Below(256); left != 0 && !IsOver(); --left)
            octets += static_cast<char>(*mpNext++);
        return octets;
    }

    /// All that is left.
    std::string Rest() {
        const std::string rest(reinterpret_cast<const char*>(mpNext),
                               static_cast<std::size_t>(mpEnd - mpNext));
        mpNext = mpEnd;
        return rest;
    }

private:
    const std::uint8_t* mpNext;
    const std::uint8_t* mpEnd;
};

}  // namespace test
