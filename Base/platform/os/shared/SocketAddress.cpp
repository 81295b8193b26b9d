#include <Base/platform/os/shared/SocketAddress.h>

#include <algorithm>
#include <cstring>

namespace ZBase::os {

namespace {

bool IsSame(const NetworkAddress& a, const NetworkAddress& b) {
    return a.length == b.length && a.scope == b.scope && std::memcmp(a.octets, b.octets, a.length) == 0;
}

}  // namespace

bool FromSocketAddress(const sockaddr& socketAddress, NetworkAddress& address) {
    address = {};
    if (socketAddress.sa_family == AF_INET) {
        sockaddr_in internet{};
        std::memcpy(&internet, &socketAddress, sizeof internet);
        address.length = sizeof internet.sin_addr;
        std::memcpy(address.octets, &internet.sin_addr, address.length);
        return true;
    }
    if (socketAddress.sa_family == AF_INET6) {
        sockaddr_in6 internet{};
        std::memcpy(&internet, &socketAddress, sizeof internet);
        address.length = sizeof internet.sin6_addr;
        address.scope = internet.sin6_scope_id;
        std::memcpy(address.octets, &internet.sin6_addr, address.length);
        return true;
    }
    return false;
}

socklen_t ToSocketAddress(const NetworkAddress& address, sockaddr_storage& storage) {
    storage = {};
    if (address.length == sizeof(in_addr)) {
        sockaddr_in internet{};
        internet.sin_family = AF_INET;
        std::memcpy(&internet.sin_addr, address.octets, address.length);
        std::memcpy(&storage, &internet, sizeof internet);
        return sizeof internet;
    }
    sockaddr_in6 internet{};
    internet.sin6_family = AF_INET6;
    internet.sin6_scope_id = address.scope;
    std::memcpy(&internet.sin6_addr, address.octets, sizeof address.octets);
    std::memcpy(&storage, &internet, sizeof internet);
    return sizeof internet;
}

void AddAddresses(const addrinfo* list, std::vector<NetworkAddress>& addresses) {
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        NetworkAddress address;
        if (!FromSocketAddress(*entry->ai_addr, address)) continue;
        const bool isKnown = std::any_of(addresses.begin(), addresses.end(),
                                         [&](const NetworkAddress& each) { return IsSame(each, address); });
        if (!isKnown) addresses.push_back(address);
    }
}

}  // namespace ZBase::os
