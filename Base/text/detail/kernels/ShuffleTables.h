#pragma once

namespace ZBase::detail {

// Indices for byte shuffles that move the kept octets of a register to the front.

struct ShuffleTable {
    alignas(16) unsigned char rows[256][16];
};

/// Of eight pairs of octets those whose bit is set.
extern const ShuffleTable kWholePairs;

/// Of eight pairs of octets both where the bit is set, otherwise the second.
extern const ShuffleTable kOneOrTwo;

/// Of four quads of octets the third, with the second where the bit in the low nibble is set, and with the
/// first where the one in the high nibble is.
extern const ShuffleTable kOneToThree;

}  // namespace ZBase::detail
