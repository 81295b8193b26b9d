#pragma once

#include <Base/platform/os/Network.h>

#include <winsock2.h>
#include <ws2tcpip.h>

namespace ZBase::os {

/// False if the address is of another family than IPv4 and IPv6.
bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address);

/// Gives the length of the address that is then in `storage`.
int ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage);

}  // namespace ZBase::os
