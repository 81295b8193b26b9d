#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

/// An identifier of 20 bytes without further structure.
struct _UDID {
    unsigned char octets[20];
};

static_assert(sizeof(_UDID) == 20);

namespace ZBase {

using ::_UDID;

/// 20 zero bytes.
ZBASE_API extern const _UDID UDID_NULL;

/// Reads 40 hexadecimal digits of either case, two for each byte. Returns false for any other text and for
/// null, and sets `UDID_NULL` then. Never throws.
ZBASE_API bool String2Udid(_UDID& udid, const unsigned short* text);

/// 40 upper-case hexadecimal digits. Throws `std::bad_alloc`.
ZBASE_API ReturnWString Udid2String(const _UDID& udid);

}  // namespace ZBase
