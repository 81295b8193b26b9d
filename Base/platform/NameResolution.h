#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>
#include <Base/frame/WideString.h>

namespace ZBase {

// Host names and their addresses. A name that can't be translated is returned unchanged. Names are passed to
// the resolver in the encoding of the character locale. Each call queries the resolver and waits for it.

/// The name of an address, its number if it has none, or `address` itself if the resolver does not know it.
/// Throws `StringConversionException` for a text that the locale's encoding lacks.
ZBASE_API ReturnWString IPAddress2MachineName(const WideString& address);

/// The first address of a host, of any family, as a number; `name` itself if the resolver knows none. Throws
/// `StringConversionException` for a name that the locale's encoding lacks.
ZBASE_API ReturnWString MachineName2IPAddress(const WideString& name);

/// Puts the first IPv4 address of a host into `address`, as a number, or `name` itself if there is none.
/// Returns 0, the resolver's system code (11001 for an unknown name), or -1 for a name that the locale's
/// encoding lacks. 0 does not prove that `address` is an address.
ZBASE_API int MachineName2IPv4Address(const WideString& name, WideString& address);

/// Appends `url`, of the form "scheme://host:port...", to `result` with the host replaced by its IPv4
/// address, and a 0 unit at the end; kept for callers that read it. Returns 0. Only colons are parsed: the
/// host begins three units after the first one and ends at the second. If there is no second one, or it
/// precedes the host, as in "a::80", `result` becomes a copy of `url` and the result is -1; if the host has
/// no address, it is that of `MachineName2IPv4Address`.
ZBASE_API int ConvertServerNameURL2IpAddrURL(const WideString& url, WideString& result);

/// Whether `text` is an IPv4 address of four decimal numbers; false for IPv6 and for null.
ZBASE_API bool IsValidIPAddress(const char* text);

}  // namespace ZBase
