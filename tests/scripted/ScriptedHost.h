#pragma once

#include <string>

namespace test {

/// The host for the logic: its values, and the calls made. A null name fails.
struct Host {
    const char* hostName = "host";
    const char* dnsHostName = "dnshost";
    const char* dnsDomain = "";
    unsigned int processors = 1;

    bool hasToken = true;
    bool sizeQuerySucceeds = false;
    unsigned int sizeQueryCode = 122;
    unsigned int userLength = 20;  // octets
    bool userSucceeds = true;
    unsigned int codeAfterUser = 0;
    const char* account = "user";
    const char* accountDomain = "domain";
    unsigned int accountUse = 1;
    unsigned int codeAfterAccount = 0;

    std::string asked;  // the names of the calls
    int openTokens = 0;
    unsigned int nameCapacity = 0;
    unsigned int userCapacity = 0;
    unsigned int accountCapacity = 0;
};

inline Host gHost;

}  // namespace test
