#pragma once

#include <cstdint>
#include <cstring>

#include <Base/platform/os/linux/stacks/unwind/Dwarf.h>

namespace ZBase::os {

/// A mapped expression, without its length.
struct Expression {
    const std::uint8_t* start;
    const std::uint8_t* end;
};

/// Reads the encodings of the tables. They come from a compiler and are trusted like code.
class DwarfReader {
public:
    DwarfReader(const std::uint8_t* start, const std::uint8_t* end) : mpNext(start), mpEnd(end) {}

    bool AtEnd() const { return mpNext >= mpEnd; }
    const std::uint8_t* Position() const { return mpNext; }
    void Move(std::int64_t distance) { mpNext += distance; }

    template <class T>
    T Fixed() {
        T value;
        std::memcpy(&value, mpNext, sizeof(T));
        mpNext += sizeof(T);
        return value;
    }

    /// LEB128: seven bits in each octet, the lowest first.
    std::uint64_t Unsigned() {
        std::uint64_t value = 0;
        for (unsigned int shift = 0; shift < 64; shift += 7) {
            const auto octet = Fixed<std::uint8_t>();
            value |= static_cast<std::uint64_t>(octet & 0x7F) << shift;
            if (octet < 0x80) break;
        }
        return value;
    }

    std::int64_t Signed() {
        std::uint64_t value = 0;
        for (unsigned int shift = 0; shift < 64;) {
            const auto octet = Fixed<std::uint8_t>();
            value |= static_cast<std::uint64_t>(octet & 0x7F) << shift;
            shift += 7;
            if (octet >= 0x80) continue;
            if ((octet & 0x40) != 0 && shift < 64) value |= ~std::uint64_t{0} << shift;
            break;
        }
        return static_cast<std::int64_t>(value);
    }

    /// A pointer, absolute or pc-relative; false for any other encoding.
    bool Pointer(std::uint8_t encoding, std::uint64_t& value) {
        const auto place = reinterpret_cast<std::uint64_t>(mpNext);
        switch (encoding & dwarf::pointer::kForm) {
            case dwarf::pointer::Absptr:
            case dwarf::pointer::Udata8:
            case dwarf::pointer::Sdata8:
                value = Fixed<std::uint64_t>();
                break;
            case dwarf::pointer::Udata2:
                value = Fixed<std::uint16_t>();
                break;
            case dwarf::pointer::Udata4:
                value = Fixed<std::uint32_t>();
                break;
            case dwarf::pointer::Sdata2:
                value = static_cast<std::uint64_t>(std::int64_t{Fixed<std::int16_t>()});
                break;
            case dwarf::pointer::Sdata4:
                value = static_cast<std::uint64_t>(std::int64_t{Fixed<std::int32_t>()});
                break;
            default:
                return false;
        }
        const unsigned int relation = encoding & dwarf::pointer::kRelation;
        if (relation == dwarf::pointer::Pcrel) value += place;
        return relation == dwarf::pointer::Absptr || relation == dwarf::pointer::Pcrel;
    }

    /// A block after its length.
    Expression Block() {
        const std::uint64_t length = Unsigned();
        const Expression block{mpNext, mpNext + length};
        mpNext = block.end;
        return block;
    }

private:
    const std::uint8_t* mpNext;
    const std::uint8_t* mpEnd;
};

}  // namespace ZBase::os
