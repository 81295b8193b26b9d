#include <Base/platform/os/host/Interfaces.h>
#include <Base/platform/os/shared/RankedAddresses.h>
#include <Base/platform/os/shared/SocketAddress.h>

#include <windows.h>

#include <iphlpapi.h>

#include <cstddef>

namespace ZBase::os {

namespace {

bool IsOfADevice(const IP_ADAPTER_ADDRESSES& adapter) {
    MIB_IF_ROW2 row{};
    row.InterfaceLuid = adapter.Luid;
    return GetIfEntry2(&row) == NO_ERROR && row.InterfaceAndOperStatusFlags.HardwareInterface != 0;
}

// In the order in which the system gives them. Empty if it does not tell.
std::vector<std::max_align_t> Adapters() {
    constexpr ULONG flags = GAA_FLAG_SKIP_ANYCAST | GAA_FLAG_SKIP_MULTICAST | GAA_FLAG_SKIP_DNS_SERVER;
    std::vector<std::max_align_t> facts(16384 / sizeof(std::max_align_t));
    // There may be more of them than a moment ago.
    for (int attempt = 0; attempt != 4; ++attempt) {
        auto size = static_cast<ULONG>(facts.size() * sizeof(std::max_align_t));
        const ULONG result = GetAdaptersAddresses(
            AF_UNSPEC, flags, nullptr, reinterpret_cast<IP_ADAPTER_ADDRESSES*>(facts.data()), &size);
        if (result == NO_ERROR) return facts;
        if (result != ERROR_BUFFER_OVERFLOW) break;
        facts.resize(size / sizeof(std::max_align_t) + 1);
    }
    return {};
}

}  // namespace

std::vector<NetworkAddress> OwnAddresses() {
    const std::vector<std::max_align_t> facts = Adapters();
    if (facts.empty()) return {};
    RankedAddresses ranked;
    const auto* adapter = reinterpret_cast<const IP_ADAPTER_ADDRESSES*>(facts.data());
    for (; adapter != nullptr; adapter = adapter->Next) {
        if (adapter->OperStatus != IfOperStatusUp || adapter->IfType == IF_TYPE_SOFTWARE_LOOPBACK) continue;
        const bool isOfADevice = IsOfADevice(*adapter);
        for (const auto* entry = adapter->FirstUnicastAddress; entry != nullptr; entry = entry->Next) {
            NetworkAddress address;
            if (entry->Address.lpSockaddr != nullptr &&
                FromSocketAddress(*entry->Address.lpSockaddr, address))
                ranked.Add(address, isOfADevice);
        }
    }
    return ranked.Sorted();
}

}  // namespace ZBase::os
