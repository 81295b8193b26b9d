#pragma once

#include <Base/platform/os/Network.h>

#include <vector>

namespace ZBase::os {

/// The addresses of this host's own interfaces that are up, those first that tell it apart best: of IPv4
/// before IPv6, of a device before what only software is, of the whole network before one link. None of the
/// loopback. Empty if the system does not tell.
std::vector<NetworkAddress> OwnAddresses();

}  // namespace ZBase::os
