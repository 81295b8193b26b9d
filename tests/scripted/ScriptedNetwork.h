#pragma once

#include <Base/platform/os/host/Network.h>

#include <string>
#include <vector>

namespace test {

/// The network for the logic. An address is described by the text at its index in `texts`; null fails.
struct Network {
    unsigned int startCode = 0;
    std::vector<ZBase::os::NetworkAddress> any;
    unsigned int anyCode = 0;
    std::vector<ZBase::os::NetworkAddress> ipv4;
    unsigned int ipv4Code = 0;
    std::vector<const char*> texts;
    const char* hostName = "host";
    int parsed = 0;  // of `ParseIPv4Address`

    std::string askedName;
    int asked = 0;  // times that a name was resolved
    bool askedForNumber = false;
    unsigned int textCapacity = 0;
    std::size_t described = 0;
};

inline Network gNetwork;

}  // namespace test
