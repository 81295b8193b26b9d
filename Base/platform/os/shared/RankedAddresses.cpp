#include <Base/platform/os/shared/RankedAddresses.h>

#include <algorithm>

namespace ZBase::os {

namespace {

bool IsOfOneLink(const NetworkAddress& address) {
    const unsigned char* const octets = address.octets;
    return address.length == 4 ? octets[0] == 169 && octets[1] == 254
                               : octets[0] == 0xFE && (octets[1] & 0xC0) == 0x80;
}

}  // namespace

void RankedAddresses::Add(const NetworkAddress& address, bool isOfADevice) {
    const int rank = (IsOfOneLink(address) ? 4 : 0) + (address.length == 4 ? 0 : 2) + (isOfADevice ? 0 : 1);
    mRanked.emplace_back(rank, address);
}

std::vector<NetworkAddress> RankedAddresses::Sorted() {
    std::stable_sort(mRanked.begin(), mRanked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<NetworkAddress> addresses;
    addresses.reserve(mRanked.size());
    for (const auto& [rank, address] : mRanked) addresses.push_back(address);
    return addresses;
}

}  // namespace ZBase::os
