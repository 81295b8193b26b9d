#include <Base/platform/os/host/Network.h>
#include <Base/platform/os/shared/SocketAddress.h>

#include <windows.h>

#include <memory>

namespace ZBase::os {

// The system counts, and nobody counts back: the network stays ready.
unsigned int StartNetwork() {
    constexpr WORD version = 0x101;
    WSADATA facts{};
    return static_cast<unsigned int>(WSAStartup(version, &facts));
}

unsigned int ResolveName(const char* name, EAddressFamily family, std::vector<NetworkAddress>& addresses) {
    addrinfo hints{};
    hints.ai_family = AF_INET;
    addrinfo* list = nullptr;
    const int result = getaddrinfo(name, nullptr, family == EAddressFamily::IPv4 ? &hints : nullptr, &list);
    if (result != 0) {
        SetLastError(static_cast<DWORD>(result));
        return static_cast<unsigned int>(result);
    }
    const std::unique_ptr<addrinfo, void(WSAAPI*)(addrinfo*)> owner(list, freeaddrinfo);
    AddAddresses(list, addresses);
    return 0;
}

bool DescribeAddress(const NetworkAddress& address, EAddressText form, char* text, unsigned int capacity) {
    sockaddr_storage storage;
    const int length = ToSocketAddress(address, storage);
    const int flags = form == EAddressText::Number ? NI_NUMERICHOST : 0;
    const int result =
        getnameinfo(reinterpret_cast<const sockaddr*>(&storage), length, text, capacity, nullptr, 0, flags);
    if (result != 0) SetLastError(static_cast<DWORD>(result));
    return result == 0;
}

int ParseIPv4Address(const char* text) {
    in_addr address{};
    return inet_pton(AF_INET, text, &address);
}

bool GetNetworkHostName(char* name, unsigned int capacity) {
    return gethostname(name, static_cast<int>(capacity)) == 0;
}

}  // namespace ZBase::os
