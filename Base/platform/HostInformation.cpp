#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/HostInformation.h>
#include <Base/platform/os/Host.h>
#include <Base/platform/os/Network.h>
#include <Base/platform/os/SystemErrors.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace ZBase {

namespace {

constexpr unsigned int kNameCapacity = 255;
constexpr unsigned int kAccountCapacity = 257;
constexpr unsigned int kNetworkNameCapacity = 1025;
constexpr unsigned int kInsufficientBuffer = 122;

struct CloseToken {
    void operator()(os::Token token) const { os::CloseToken(token); }
};

// The security identifier of the token's user, behind which the length is rounded up.
std::unique_ptr<unsigned char[]> ReadTokenUser(os::Token token) {
    unsigned int length = 0;
    const bool unexpected = os::GetTokenUser(token, nullptr, 0, length);
    if (unexpected || os::GetLastCode() != kInsufficientBuffer) {
        detail::ThrowSystemFailure("::GetTokenInformation failed"_w);
    }
    const std::size_t size = ((std::size_t{length} >> 4) + 1) * 16;
    auto user = std::make_unique<unsigned char[]>(size);
    if (!os::GetTokenUser(token, user.get(), static_cast<unsigned int>(size), length)) {
        detail::ThrowSystemFailure("::GetTokenInformation failed"_w);
    }
    return user;
}

}  // namespace

ReturnWString GetComputerName() {
    unsigned short name[kNameCapacity]{};
    return ReturnWString(os::GetDnsHostName(name, kNameCapacity) ? name : ""_w);
}

ReturnWString GetComputerFullName() {
    unsigned short name[kNameCapacity]{};
    unsigned short domain[kNameCapacity]{};
    const bool hasName = os::GetHostName(name, kNameCapacity);
    const bool hasDomain = os::GetDnsDomain(domain, kNameCapacity);
    if (!hasName || !hasDomain) return ReturnWString(""_w);
    WideString full(name);
    if (*domain != 0) {
        full += '.';
        full += domain;
    }
    return ReturnWString(full.c_str());
}

ReturnWString GetCurrentLogin() {
    const std::unique_ptr<void, CloseToken> token(os::OpenProcessToken());
    if (token == nullptr) detail::ThrowSystemFailure("::OpenProcessToken failed"_w);
    const auto user = ReadTokenUser(token.get());
    unsigned short name[kAccountCapacity]{};
    unsigned short domain[kAccountCapacity]{};
    unsigned int use = 0;
    if (!os::LookupAccount(user.get(), name, domain, kAccountCapacity, use) || use != os::kUserAccount) {
        detail::ThrowSystemFailure("::LookupAccountSidW failed"_w);
    }
    WideString login(domain);
    login += '\\';
    login += name;
    return ReturnWString(login.c_str());
}

unsigned short GetNumberOfSystemProcessors() {
    return static_cast<unsigned short>(os::ProcessorCount());
}

int GetUniqueMachineID() {
    char name[kNetworkNameCapacity]{};
    std::vector<os::NetworkAddress> addresses;
    if (os::StartNetwork() != 0 || !os::GetNetworkHostName(name, kNetworkNameCapacity - 1)) return 0;
    const bool resolved = os::ResolveName(name, os::EAddressFamily::IPv4, addresses) == 0 ||
                          os::ResolveName(name, os::EAddressFamily::Any, addresses) == 0;
    if (!resolved || addresses.empty()) return 0;
    std::uint32_t id = 0;
    for (unsigned int i = 0; i != addresses[0].length; i += 4) {
        const unsigned char* octets = addresses[0].octets + i;
        id ^= static_cast<std::uint32_t>(octets[0]) << 24 | static_cast<std::uint32_t>(octets[1]) << 16 |
              static_cast<std::uint32_t>(octets[2]) << 8 | octets[3];
    }
    return static_cast<int>(id);
}

}  // namespace ZBase
