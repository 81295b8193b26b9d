#include <Base/text/detail/kernels/ShuffleTables.h>

#include <cstddef>

namespace ZBase::detail {

namespace {

constexpr unsigned char kNone = 0x80;  // picks a zero

// A row selects each octet for which `keeps(mask, octet)` is true.
template <class Keeps>
constexpr ShuffleTable MakeTable(Keeps keeps) {
    ShuffleTable table{};
    for (unsigned int mask = 0; mask != 256; ++mask) {
        std::size_t used = 0;
        for (unsigned int octet = 0; octet != 16; ++octet) {
            if (keeps(mask, octet)) table.rows[mask][used++] = static_cast<unsigned char>(octet);
        }
        while (used != 16) table.rows[mask][used++] = kNone;
    }
    return table;
}

constexpr bool IsSet(unsigned int mask, unsigned int bit) {
    return (mask >> bit & 1u) != 0;
}

}  // namespace

constinit const ShuffleTable kWholePairs =
    MakeTable([](unsigned int mask, unsigned int octet) { return IsSet(mask, octet / 2); });

constinit const ShuffleTable kOneOrTwo =
    MakeTable([](unsigned int mask, unsigned int octet) { return octet % 2 == 1 || IsSet(mask, octet / 2); });

constinit const ShuffleTable kOneToThree = MakeTable([](unsigned int mask, unsigned int octet) {
    const unsigned int quad = octet / 4;
    if (octet % 4 == 0) return IsSet(mask, 4 + quad);
    if (octet % 4 == 1) return IsSet(mask, quad);
    return octet % 4 == 2;
});

}  // namespace ZBase::detail
