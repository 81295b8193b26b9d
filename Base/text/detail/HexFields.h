#pragma once

#include <cstddef>
#include <cstdint>

namespace ZBase::detail {

/// Reads hexadecimal fields of fixed widths one after the other. Only digits are accepted: no white space,
/// sign or prefix. The text must be as long as what is read.
class HexFields {
public:
    explicit HexFields(const unsigned short* text) : mpText(text) {}

    /// The value of the next `digits` digits, at most 8.
    std::uint32_t Take(int digits) {
        std::uint32_t value = 0;
        for (; digits != 0; --digits) {
            const int digit = Value(*mpText++);
            mGood = mGood && digit >= 0;
            value = value << 4 | (static_cast<std::uint32_t>(digit) & 0xF);
        }
        return value;
    }

    void TakeOctets(unsigned char* octets, std::size_t count) {
        for (; count != 0; --count) *octets++ = static_cast<unsigned char>(Take(2));
    }

    void Expect(char character) { mGood = *mpText++ == static_cast<unsigned char>(character) && mGood; }

    /// Whether all that was read were digits.
    bool IsGood() const { return mGood; }

private:
    static int Value(unsigned short unit) {
        if (unit >= '0' && unit <= '9') return unit - '0';
        if (unit >= 'A' && unit <= 'F') return unit - 'A' + 10;
        if (unit >= 'a' && unit <= 'f') return unit - 'a' + 10;
        return -1;
    }

    const unsigned short* mpText;
    bool mGood = true;
};

}  // namespace ZBase::detail
