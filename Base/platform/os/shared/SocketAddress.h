#pragma once

#include <Base/platform/os/host/Network.h>

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#endif

#include <vector>

namespace ZBase::os {

/// The IPv4 or IPv6 address in a socket address; false for other families.
bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address);

/// Returns the octets used.
socklen_t ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage);

/// Appends those of a resolver's list that are not there yet: it has each once for each type of socket.
void AddAddresses(const addrinfo* list, std::vector<NetworkAddress>& addresses);

}  // namespace ZBase::os
