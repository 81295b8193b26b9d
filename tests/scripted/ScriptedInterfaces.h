#pragma once

#include <Base/platform/os/host/Interfaces.h>

#include <vector>

namespace test {

/// The addresses of the interfaces for the logic.
inline std::vector<ZBase::os::NetworkAddress> gOwnAddresses;

}  // namespace test
