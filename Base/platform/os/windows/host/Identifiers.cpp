#include <Base/platform/os/host/Identifiers.h>

#include <rpc.h>
#include <windows.h>

#include <algorithm>
#include <cstring>

namespace ZBase::os {

unsigned int CreateIdentifier(unsigned char* octets) {
    UUID identifier{};
    const RPC_STATUS status = UuidCreate(&identifier);
    if (status != RPC_S_OK) return static_cast<unsigned int>(status);
    std::memcpy(octets, &identifier, sizeof identifier);
    // The three numbers in front lie in memory with their least significant octets first.
    std::reverse(octets, octets + 4);
    std::reverse(octets + 4, octets + 6);
    std::reverse(octets + 6, octets + 8);
    return 0;
}

}  // namespace ZBase::os
