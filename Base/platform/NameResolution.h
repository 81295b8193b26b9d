#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>
#include <Base/frame/WideString.h>

namespace ZBase {

// Host names and their addresses. What can't be translated is given back as it was. Names pass the resolver
// in the encoding of the character locale. Each call asks the resolver and waits for it.

/// The name that an address belongs to, its number where it has none, or `address` itself where the resolver
/// knows nothing. Throws `StringConversionException` for a text that the locale can't hold.
ZBASE_API ReturnWString IPAddress2MachineName(const WideString& address);

/// The first address of a host, of any family, as a number; `name` itself where the resolver knows none.
/// Throws `StringConversionException` for a name that the locale can't hold.
ZBASE_API ReturnWString MachineName2IPAddress(const WideString& name);

/// Puts the first IPv4 address of a host into `address`, as a number, or `name` itself where there is none.
/// Gives 0, the resolver's system code (11001 for an unknown name), or -1 for a name that the locale can't
/// hold. 0 does not prove that `address` is one.
ZBASE_API int MachineName2IPv4Address(const WideString& name, WideString& address);

/// Appends `url`, of the form "scheme://host:port...", to `result` with the IPv4 address of the host in its
/// place, and a 0 unit behind the end, which is meant. Gives 0. Nothing of a URL is known but its colons: the
/// host begins three units behind the first one and ends at the second. Where there is no second one, or it
/// stands before the host begins, as in "a::80", `result` becomes a copy of `url` and the result is -1; where
/// the host has no address, it is what `MachineName2IPv4Address` gave.
ZBASE_API int ConvertServerNameURL2IpAddrURL(const WideString& url, WideString& result);

/// Whether `text` is an IPv4 address of four decimal numbers; one of IPv6 is none. False for null.
ZBASE_API bool IsValidIPAddress(const char* text);

}  // namespace ZBase
