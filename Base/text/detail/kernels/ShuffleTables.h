#pragma once

namespace ZBase::detail {

// For the instructions that pick the octets of a register by number: which ones to keep, moved to the front.

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
