#include <Base/platform/os/Network.h>
#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/linux/ErrorCodes.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <cstring>
#include <memory>

namespace ZBase::os {

namespace {

bool FromSocketAddress(const addrinfo& entry, NetworkAddress& address) {
    address = {};
    if (entry.ai_family == AF_INET) {
        sockaddr_in internet{};
        std::memcpy(&internet, entry.ai_addr, sizeof internet);
        address.length = sizeof internet.sin_addr;
        std::memcpy(address.octets, &internet.sin_addr, address.length);
        return true;
    }
    if (entry.ai_family == AF_INET6) {
        sockaddr_in6 internet{};
        std::memcpy(&internet, entry.ai_addr, sizeof internet);
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

}  // namespace

unsigned int StartNetwork() {
    return 0;
}

unsigned int ResolveName(const char* name, EAddressFamily family, std::vector<NetworkAddress>& addresses) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* list = nullptr;
    const int result = getaddrinfo(name, nullptr, family == EAddressFamily::IPv4 ? &hints : nullptr, &list);
    if (result != 0) {
        const unsigned int code = Win32CodeOfResolverResult(result);
        SetLastCode(code);
        return code;
    }
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, freeaddrinfo);
    for (const addrinfo* entry = list; entry != nullptr; entry = entry->ai_next) {
        NetworkAddress address;
        if (FromSocketAddress(*entry, address)) addresses.push_back(address);
    }
    return 0;
}

bool DescribeAddress(const NetworkAddress& address, EAddressText form, char* text, unsigned int capacity) {
    sockaddr_storage storage;
    const socklen_t length = ToSocketAddress(address, storage);
    const int flags = form == EAddressText::Number ? NI_NUMERICHOST : 0;
    const int result =
        getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, text, capacity, nullptr, 0, flags);
    if (result == 0) return true;
    SetLastCode(Win32CodeOfResolverResult(result));
    return false;
}

int ParseIPv4Address(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address);
}

bool GetNetworkHostName(char* name, unsigned int capacity) {
    if (gethostname(name, capacity) != 0) {
        SetLastCodeFromErrno();
        return false;
    }
    return true;
}

}  // namespace ZBase::os
