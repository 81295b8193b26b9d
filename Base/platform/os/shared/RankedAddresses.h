#pragma once

#include <Base/platform/os/host/Network.h>

#include <utility>
#include <vector>

namespace ZBase::os {

/// Addresses of this machine, so that those come first by which others know it best.
class RankedAddresses {
public:
    /// A bridge or a tunnel is no device: it may have the same address on every machine.
    void Add(const NetworkAddress& address, bool isOfADevice);

    /// Equally good ones stay in the order in which they were added.
    std::vector<NetworkAddress> Sorted();

private:
    std::vector<std::pair<int, NetworkAddress>> mRanked;  // smaller is better
};

}  // namespace ZBase::os
