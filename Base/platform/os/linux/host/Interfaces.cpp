#include <Base/platform/os/host/Interfaces.h>

#include <ifaddrs.h>
#include <net/if.h>
#include <unistd.h>
#include <algorithm>
#include <memory>
#include <string>
#include <utility>

#include <Base/platform/os/shared/SocketAddress.h>

namespace ZBase::os {

namespace {

bool IsOfOneLink(const NetworkAddress& address) {
    const unsigned char* const octets = address.octets;
    return address.length == 4 ? octets[0] == 169 && octets[1] == 254
                               : octets[0] == 0xFE && (octets[1] & 0xC0) == 0x80;
}

// A bridge or a tunnel may have the same address on every machine.
bool IsOfADevice(const char* interface) {
    return access(("/sys/class/net/" + std::string(interface) + "/device").c_str(), F_OK) == 0;
}

// Smaller is better.
int Rank(const NetworkAddress& address, const char* interface) {
    return (IsOfOneLink(address) ? 4 : 0) + (address.length == 4 ? 0 : 2) + (IsOfADevice(interface) ? 0 : 1);
}

}  // namespace

std::vector<NetworkAddress> OwnAddresses() {
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0) return {};
    const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(list, freeifaddrs);
    std::vector<std::pair<int, NetworkAddress>> ranked;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        NetworkAddress address;
        if (entry->ifa_addr == nullptr || (entry->ifa_flags & IFF_UP) == 0 ||
            (entry->ifa_flags & IFF_LOOPBACK) != 0 || !FromSocketAddress(*entry->ifa_addr, address))
            continue;
        ranked.emplace_back(Rank(address, entry->ifa_name), address);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<NetworkAddress> addresses;
    addresses.reserve(ranked.size());
    for (const auto& [rank, address] : ranked) addresses.push_back(address);
    return addresses;
}

}  // namespace ZBase::os
