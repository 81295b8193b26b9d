#include <Base/frame/WideLiteral.h>
#include <Base/frame/WideString.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/HostInformation.h>
#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/host/Host.h>
#include <Base/platform/os/host/Interfaces.h>
#include <Base/platform/os/host/Network.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <utility>
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

// The security identifier of the token's user, in a block with the length rounded up.
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

constexpr unsigned int kResolverIsSilent = 11002;

/// A loopback address or none, which is the same on every machine.
bool IsLoopback(const os::NetworkAddress& address) {
    const unsigned char* octets = address.octets;
    if (address.length == 16) {
        constexpr unsigned char mapped[12] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};  // IPv4 within IPv6
        const bool isMapped = std::equal(octets, octets + 12, mapped);
        if (!isMapped)
            return std::all_of(octets, octets + 15, [](unsigned char c) { return c == 0; }) && octets[15] < 2;
        octets += 12;
    }
    return octets[0] == 127 || (octets[0] | octets[1] | octets[2] | octets[3]) == 0;
}

const os::NetworkAddress* FindTelling(const std::vector<os::NetworkAddress>& addresses) {
    const auto found = std::find_if_not(addresses.begin(), addresses.end(), IsLoopback);
    return found == addresses.end() ? nullptr : &*found;
}

/// The address that identifies this host: one that its name resolves to, of IPv4 if there is one. Many hosts
/// give their own name a loopback address; then it is one of their interfaces, and a loopback address only if
/// the host has no other. Null if the name does not resolve.
const os::NetworkAddress* FindOwnAddress(const char* name, std::vector<os::NetworkAddress>& addresses) {
    const unsigned int code = os::ResolveName(name, os::EAddressFamily::IPv4, addresses);
    if (const auto* telling = FindTelling(addresses); code == 0 && telling != nullptr) return telling;
    // A silent resolver is waited for only once.
    if (code == kResolverIsSilent) return nullptr;
    std::vector<os::NetworkAddress> all;
    const bool resolved = code == 0 || os::ResolveName(name, os::EAddressFamily::Any, all) == 0;
    if (!resolved) return nullptr;
    if (code != 0) addresses = std::move(all);
    if (addresses.empty()) return nullptr;
    if (const auto* telling = FindTelling(addresses); telling != nullptr) return telling;
    std::vector<os::NetworkAddress> own = os::OwnAddresses();
    if (FindTelling(own) != nullptr) addresses = std::move(own);
    const auto* telling = FindTelling(addresses);
    return telling != nullptr ? telling : &addresses.front();
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
    const os::NetworkAddress* const address = FindOwnAddress(name, addresses);
    if (address == nullptr) return 0;
    std::uint32_t id = 0;
    for (unsigned int i = 0; i != address->length; i += 4) {
        const unsigned char* octets = address->octets + i;
        id ^= static_cast<std::uint32_t>(octets[0]) << 24 | static_cast<std::uint32_t>(octets[1]) << 16 |
              static_cast<std::uint32_t>(octets[2]) << 8 | octets[3];
    }
    return static_cast<int>(id);
}

}  // namespace ZBase
