#pragma once

#include <Base/platform/os/host/Network.h>

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netinet/in.h>
#include <sys/socket.h>
#endif

namespace ZBase::os {

/// The IPv4 or IPv6 address in a socket address; false for other families.
bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address);

/// Returns the octets used.
socklen_t ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage);

}  // namespace ZBase::os
