#pragma once

#include <string>

namespace ZBase::os {

/// The way to a server, from `http_proxy`, `https_proxy`, `all_proxy` and `no_proxy`.
struct ProxySettings {
    std::wstring server;  // "host:port"; empty if the environment names none
    std::wstring direct;  // the hosts that are reached without it
    std::wstring user;
    std::wstring password;
};

ProxySettings FindProxy(bool isSecure);

}  // namespace ZBase::os
