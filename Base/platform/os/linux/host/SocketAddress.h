#pragma once

#include <Base/platform/os/Network.h>

#include <sys/socket.h>

namespace ZBase::os {

/// The address of the internet in a socket address; false if it is of another family.
bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address);

/// Gives the octets used.
socklen_t ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage);

}  // namespace ZBase::os
