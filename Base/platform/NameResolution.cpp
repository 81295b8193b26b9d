#include <Base/messages/Message.h>
#include <Base/platform/NameResolution.h>
#include <Base/platform/os/host/Network.h>
#include <Base/text/MultibyteConversions.h>

#include <cstddef>
#include <string>
#include <vector>

namespace ZBase {

namespace {

using Addresses = std::vector<os::NetworkAddress>;

std::string NarrowName(const WideString& name) {
    return WideCharToMultiByte(name.c_str(), false).c_str();
}

/// The text of the first address that has one; empty if none has.
std::string FirstText(const Addresses& addresses, os::EAddressText form) {
    for (const os::NetworkAddress& address : addresses) {
        char text[1025]{};
        if (os::DescribeAddress(address, form, text, sizeof text) && *text != 0) return text;
    }
    return {};
}

ReturnWString Translate(const WideString& input, os::EAddressText form) {
    Addresses addresses;
    if (os::StartNetwork() == 0 &&
        os::ResolveName(NarrowName(input).c_str(), os::EAddressFamily::Any, addresses) == 0) {
        const std::string text = FirstText(addresses, form);
        if (!text.empty()) return MultiByteToWideChar(text.c_str(), false);
    }
    return ReturnWString(input.c_str());
}

/// Puts the IPv4 addresses of a host into `addresses`; 0, a system code, or -1 for a name that the locale's
/// encoding lacks.
int ResolveIPv4(const WideString& name, Addresses& addresses) {
    try {
        return static_cast<int>(
            os::ResolveName(NarrowName(name).c_str(), os::EAddressFamily::IPv4, addresses));
    } catch (const Message&) {
        return -1;
    }
}

}  // namespace

ReturnWString IPAddress2MachineName(const WideString& address) {
    return Translate(address, os::EAddressText::Name);
}

ReturnWString MachineName2IPAddress(const WideString& name) {
    return Translate(name, os::EAddressText::Number);
}

int MachineName2IPv4Address(const WideString& name, WideString& address) {
    address = name;
    if (const unsigned int failure = os::StartNetwork(); failure != 0) return static_cast<int>(failure);
    Addresses addresses;
    if (const int failure = ResolveIPv4(name, addresses); failure != 0) return failure;
    const std::string text = FirstText(addresses, os::EAddressText::Number);
    if (!text.empty()) address = MultiByteToWideChar(text.c_str(), false).c_str();
    return 0;
}

int ConvertServerNameURL2IpAddrURL(const WideString& url, WideString& result) {
    constexpr unsigned short colon = ':';
    constexpr std::size_t slashes = 2;
    const auto refuse = [&](int code) {
        result = url;
        return code;
    };
    const std::size_t first = url.find(colon);
    const std::size_t second = first == WideString::npos ? first : url.find(colon, first + 1);
    if (second == WideString::npos || second <= first + slashes) return refuse(-1);

    const std::size_t start = first + 1 + slashes;
    WideString address;
    const int failure = MachineName2IPv4Address(url.substr(start, second - start), address);
    if (failure != 0) return refuse(failure);
    // The terminator of the URL becomes part of the result; kept for callers that read it.
    address.append(url.c_str() + second, url.size() - second + 1);
    address.insert(0, url, 0, start);
    result += address;
    return 0;
}

bool IsValidIPAddress(const char* text) {
    return text != nullptr && os::ParseIPv4Address(text) != 0;
}

}  // namespace ZBase
