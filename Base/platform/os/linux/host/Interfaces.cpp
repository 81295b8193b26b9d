#include <Base/platform/os/host/Interfaces.h>

#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>
#include <memory>
#include <string>

#include <Base/platform/os/shared/RankedAddresses.h>
#include <Base/platform/os/shared/SocketAddress.h>

namespace ZBase::os {

namespace {

bool IsOfADevice(const char* interface) {
    return access(("/sys/class/net/" + std::string(interface) + "/device").c_str(), F_OK) == 0;
}

}  // namespace

std::vector<NetworkAddress> OwnAddresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    RankedAddresses ranked;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        NetworkAddress address;
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_UP) == 0 ||
            (entry->ifa_flags & IFF_LOOPBACK) != 0 || !FromSocketAddress(*entry->ifa_addr, address))
            continue;
        ranked.Add(address, IsOfADevice(entry->ifa_name));
    }
    return ranked.Sorted();
}

}  // namespace ZBase::os
