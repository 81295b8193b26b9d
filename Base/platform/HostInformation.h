#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#if defined(_WIN32)  // <windows.h> has macros of these names
#pragma push_macro("GetComputerName")
#undef GetComputerName
#endif

namespace ZBase {

/// The name of this computer in the DNS, without its domain; empty if the system has none.
ZBASE_API ReturnWString GetComputerName();

/// The name of this computer, with "." and its DNS domain if it is in one; empty if the system has none.
ZBASE_API ReturnWString GetComputerFullName();

/// The account of this process, as "domain\user". Throws a `Message` with the system code as id when the
/// system refuses, or the account is not a user's.
ZBASE_API ReturnWString GetCurrentLogin();

/// The processors that are online. The process may be limited to fewer: `GetUsableProcessors`.
ZBASE_API unsigned short GetNumberOfSystemProcessors();

/// A number that identifies this machine in its network: the IPv4 address that its own host name resolves to,
/// the most significant octet first, or the four words of an IPv6 address together. If the name resolves to
/// the loopback only, the address is that of an interface, if the host has one that is up. 0 when the name
/// does not resolve, or the resolver does not reply. Queries the resolver.
ZBASE_API int GetUniqueMachineID();

#if defined(_WIN32)
// What the calls are named by the macros of <windows.h>.
inline ReturnWString GetComputerNameA() {
    return GetComputerName();
}
inline ReturnWString GetComputerNameW() {
    return GetComputerName();
}
#endif

}  // namespace ZBase

#if defined(_WIN32)
#pragma pop_macro("GetComputerName")
#endif
