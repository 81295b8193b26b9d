#pragma once

#include <cstdint>

namespace ZBase::detail {

/// Octets of the sequence that `octet` leads, 1 to 6; 0 if it leads none.
unsigned int Utf8SequenceLength(unsigned char octet);

/// Decodes `length` octets of UTF-8, zero octets among them, into `destination`, which has room for `length`
/// + 1 units, and ends it with a 0. Gives where that stands; nothing behind it is changed. When it throws,
/// only what was decoded before is in `destination`.
unsigned short* DecodeUtf8(const unsigned char* source, std::uint64_t length, bool replace,
                           unsigned short* destination);

}  // namespace ZBase::detail
