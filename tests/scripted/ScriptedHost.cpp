#include "tests/scripted/ScriptedHost.h"

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/host/Host.h>

#include <cstring>

namespace ZBase::os {

namespace {

bool Put(const char* text, unsigned short* buffer, unsigned int capacity) {
    if (text == nullptr || std::strlen(text) >= capacity) return false;
    do *buffer++ = static_cast<unsigned char>(*text);
    while (*text++ != 0);
    return true;
}

bool PutName(const char* call, const char* text, unsigned short* buffer, unsigned int capacity) {
    test::gHost.asked += call;
    test::gHost.nameCapacity = capacity;
    return Put(text, buffer, capacity);
}

}  // namespace

bool GetHostName(unsigned short* name, unsigned int capacity) {
    return PutName("host ", test::gHost.hostName, name, capacity);
}

bool GetDnsHostName(unsigned short* name, unsigned int capacity) {
    return PutName("dns ", test::gHost.dnsHostName, name, capacity);
}

bool GetDnsDomain(unsigned short* domain, unsigned int capacity) {
    return PutName("domain ", test::gHost.dnsDomain, domain, capacity);
}

unsigned int ProcessorCount() {
    return test::gHost.processors;
}

Token OpenProcessToken() {
    if (!test::gHost.hasToken) return nullptr;
    ++test::gHost.openTokens;
    return &test::gHost;
}

void CloseToken(Token token) {
    if (token == &test::gHost) --test::gHost.openTokens;
}

bool GetTokenUser(Token, void* user, unsigned int capacity, unsigned int& length) {
    test::Host& host = test::gHost;
    length = host.userLength;
    if (user == nullptr) {
        SetLastCode(host.sizeQueryCode);
        return host.sizeQuerySucceeds;
    }
    host.userCapacity = capacity;
    std::memset(user, 'u', capacity);
    SetLastCode(host.codeAfterUser);
    return host.userSucceeds;
}

bool LookupAccount(const void* user, unsigned short* name, unsigned short* domain, unsigned int capacity,
                   unsigned int& use) {
    test::Host& host = test::gHost;
    host.accountCapacity = capacity;
    use = host.accountUse;
    SetLastCode(host.codeAfterAccount);
    return *static_cast<const char*>(user) == 'u' && Put(host.account, name, capacity) &&
           Put(host.accountDomain, domain, capacity);
}

}  // namespace ZBase::os
