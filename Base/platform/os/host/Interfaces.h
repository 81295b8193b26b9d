#pragma once

#include <Base/platform/os/host/Network.h>

#include <vector>

namespace ZBase::os {

/// The addresses of this host's own interfaces that are up, best first: IPv4 before IPv6, devices before
/// virtual interfaces, global before link-local. No loopback. Empty if the system refuses.
std::vector<NetworkAddress> OwnAddresses();

}  // namespace ZBase::os
