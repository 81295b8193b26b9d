#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/host/Network.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/shared/SocketAddress.h>

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>
#include <memory>

namespace ZBase::os {

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
    AddAddresses(list, addresses);
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
