#pragma once

#include <Base/platform/os/Network.h>

#include <sys/socket.h>

namespace ZBase::os {

/// The IPv4 or IPv6 address in a socket address; false for other families.
bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address);

/// Returns the octets used.
socklen_t ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage);

}  // namespace ZBase::os
