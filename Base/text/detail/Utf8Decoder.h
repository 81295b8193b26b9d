#pragma once

#include <cstdint>

namespace ZBase::detail {

/// Octets of the sequence that `octet` leads, 1 to 6; 0 for any other octet.
unsigned int Utf8SequenceLength(unsigned char octet);

/// Decodes `length` octets of UTF-8, zero octets included, into `destination`, which has space for `length` +
/// 1 units, and ends it with a 0. Returns its address; nothing after it is changed. When it throws,
/// `destination` has only the units decoded before.
unsigned short* DecodeUtf8(const unsigned char* source, std::uint64_t length, bool replace,
                           unsigned short* destination);

}  // namespace ZBase::detail
