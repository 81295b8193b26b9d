#pragma once

#include <vector>

namespace ZBase::os {

/// An address of a host: 4 octets of IPv4 or 16 of IPv6, the most significant first.
struct NetworkAddress {
    unsigned char octets[16];
    unsigned int length;
    unsigned int scope;  // which link an IPv6 address of that link only is on; otherwise 0
};

enum class EAddressFamily { Any, IPv4 };

/// Makes ready for the calls below. Gives 0 or a system code.
unsigned int StartNetwork();

/// Asks the resolver for the addresses of a host, in the resolver's order. Gives 0 or a system code, such as
/// 11001 for a name that it does not know.
unsigned int ResolveName(const char* name, EAddressFamily family, std::vector<NetworkAddress>& addresses);

enum class EAddressText { Name, Number };

/// Writes the name that an address belongs to (its number where it has none), or its number, and a terminator
/// into `text`, which has room for `capacity` octets.
bool DescribeAddress(const NetworkAddress& address, EAddressText form, char* text, unsigned int capacity);

/// What the system's parser of dotted IPv4 addresses answers: 0 if `text` is none.
int ParseIPv4Address(const char* text);

/// The name that this host has on the network.
bool GetNetworkHostName(char* name, unsigned int capacity);

}  // namespace ZBase::os
