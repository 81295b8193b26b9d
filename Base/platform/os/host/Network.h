#pragma once

#include <vector>

namespace ZBase::os {

/// An address of a host: 4 octets of IPv4 or 16 of IPv6, the most significant first.
struct NetworkAddress {
    unsigned char octets[16];
    unsigned int length;
    unsigned int scope;  // the interface of a link-local IPv6 address; otherwise 0
};

enum class EAddressFamily { Any, IPv4 };

/// Prepares the calls below. Returns 0 or a system code.
unsigned int StartNetwork();

/// Queries the resolver for the addresses of a host, in the resolver's order. Returns 0 or a system code,
/// such as 11001 for an unknown name.
unsigned int ResolveName(const char* name, EAddressFamily family, std::vector<NetworkAddress>& addresses);

enum class EAddressText { Name, Number };

/// Writes the name of an address (its number if it has none), or its number, and a terminator into `text`,
/// which has space for `capacity` octets.
bool DescribeAddress(const NetworkAddress& address, EAddressText form, char* text, unsigned int capacity);

/// The result of the system's parser of dotted IPv4 addresses: 0 if `text` is none.
int ParseIPv4Address(const char* text);

/// The name that this host has on the network.
bool GetNetworkHostName(char* name, unsigned int capacity);

}  // namespace ZBase::os
