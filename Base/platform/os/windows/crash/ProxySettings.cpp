#include <Base/platform/os/processes/Environment.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/crash/ProxySettings.h>

#include <initializer_list>

namespace ZBase::os {

namespace {

// The system does not tell capitals from small letters here.
std::string First(std::initializer_list<const char*> names) {
    for (const char* name : names) {
        const char* const value = GetNarrowEnvironment(name);
        if (value != nullptr && *value != 0) return value;
    }
    return "";
}

}  // namespace

ProxySettings FindProxy(bool isSecure) {
    std::string address = First({isSecure ? "https_proxy" : "http_proxy", "all_proxy"});
    const std::size_t scheme = address.find("://");
    if (scheme != std::string::npos) address.erase(0, scheme + 3);
    address.erase(std::min(address.find('/'), address.size()));
    ProxySettings settings;
    const std::size_t at = address.rfind('@');
    if (at != std::string::npos) {
        const std::string user = address.substr(0, at);
        settings.user = FromUtf8(user.substr(0, user.find(':')));
        if (user.find(':') != std::string::npos)
            settings.password = FromUtf8(user.substr(user.find(':') + 1));
        address.erase(0, at + 1);
    }
    settings.server = FromUtf8(address);
    // A name stands for the hosts below it too.
    std::string hosts = First({"no_proxy"});
    for (std::size_t start = 0; start < hosts.size();) {
        const std::size_t end = std::min(hosts.find(',', start), hosts.size());
        std::string host = hosts.substr(start, end - start);
        host.erase(0, host.find_first_not_of(" ."));
        if (!host.empty()) settings.direct += FromUtf8(host == "*" ? host : host + ";*." + host) + L";";
        start = end + 1;
    }
    return settings;
}

}  // namespace ZBase::os
