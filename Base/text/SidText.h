#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>
#include <Base/frame/WideString.h>

#include <cstdint>

namespace ZBase {

// Security identifiers. The binary record is one octet of revision, one of the number n of sub-authorities,
// six of identifier authority, big-endian, and n little-endian numbers of 32 bits: 8 + 4 * n octets.

/// "S-1-5-18": revision, authority and sub-authorities in decimal. Null for a null `sid`, for a `size` of 0,
/// and for a record without sub-authorities. `size` is not checked otherwise: the record must be as long as
/// its own count says. Throws `std::bad_alloc`.
ZBASE_API ReturnWString SidBinaryToWString(const unsigned char* sid, std::uint64_t size);

/// Reads the fields between the dashes of `text` as revision, authority and sub-authorities, ignoring what
/// precedes the first dash. Almost nothing is checked: a field that is no number is 0, a number that is too
/// large is cut, and n is the number of dashes less 2, modulo 256. `sid` then belongs to the caller, who
/// frees it with `delete[]`; `size` is its octets. False, with null and 0, for an empty text only. Throws
/// `std::bad_alloc`.
ZBASE_API bool SidWStringToBinary(const WideString& text, unsigned char*& sid, std::uint64_t& size);

}  // namespace ZBase
