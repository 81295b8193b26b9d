#include "tests/scripted/ScriptedNetwork.h"

#include <cstring>

namespace ZBase::os {

unsigned int StartNetwork() {
    return test::gNetwork.startCode;
}

unsigned int ResolveName(const char* name, EAddressFamily family, std::vector<NetworkAddress>& addresses) {
    const bool any = family == EAddressFamily::Any;
    test::gNetwork.askedName = name;
    ++test::gNetwork.asked;
    addresses = any ? test::gNetwork.any : test::gNetwork.ipv4;
    return any ? test::gNetwork.anyCode : test::gNetwork.ipv4Code;
}

bool DescribeAddress(const NetworkAddress&, EAddressText form, char* text, unsigned int capacity) {
    test::Network& network = test::gNetwork;
    network.askedForNumber = form == EAddressText::Number;
    network.textCapacity = capacity;
    const char* description = network.texts.at(network.described++);
    // The buffer's content after a failure must not be taken for a text.
    std::strcpy(text, description == nullptr ? "rest" : description);
    return description != nullptr;
}

int ParseIPv4Address(const char*) {
    return test::gNetwork.parsed;
}

bool GetNetworkHostName(char* name, unsigned int capacity) {
    if (test::gNetwork.hostName == nullptr) return false;
    std::strncpy(name, test::gNetwork.hostName, capacity);
    return true;
}

}  // namespace ZBase::os
