#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/host/Host.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/text/TextBuffer.h>

#include <netdb.h>
#include <pwd.h>
#include <sys/utsname.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace ZBase::os {

namespace {

bool NodeName(std::string& name) {
    utsname system{};
    if (uname(&system) != 0) {
        SetLastCodeFromErrno();
        return false;
    }
    name = system.nodename;
    return true;
}

std::string HostPart(const std::string& name) {
    return name.substr(0, name.find('.'));
}

std::string DomainPart(const std::string& name) {
    const std::size_t dot = name.find('.');
    return dot == std::string::npos ? "" : name.substr(dot + 1);
}

std::string CanonicalName(const std::string& name) {
    addrinfo hints{};
    hints.ai_flags = AI_CANONNAME;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (getaddrinfo(name.c_str(), nullptr, &hints, &list) != 0) return name;
    const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(list, freeaddrinfo);
    return list->ai_canonname == nullptr ? name : list->ai_canonname;
}

// The name of `id` in the user database. Last code 1332 if it has none.
bool AccountName(uid_t id, std::string& name) {
    std::vector<char> buffer(1024);
    passwd record{};
    passwd* found = nullptr;
    int result = 0;
    while ((result = getpwuid_r(id, &record, buffer.data(), buffer.size(), &found)) == ERANGE) {
        buffer.resize(2 * buffer.size());
    }
    if (found == nullptr) {
        // For an unknown user the result varies; see getpwuid_r(3).
        const bool unknown =
            result == 0 || result == ENOENT || result == ESRCH || result == EBADF || result == EPERM;
        SetLastCode(unknown ? kNoneMapped : Win32CodeOf(result));
        return false;
    }
    name = record.pw_name;
    return true;
}

}  // namespace

bool GetHostName(unsigned short* name, unsigned int capacity) {
    std::string node;
    return NodeName(node) && PutText(HostPart(node), name, capacity);
}

bool GetDnsHostName(unsigned short* name, unsigned int capacity) {
    return GetHostName(name, capacity);
}

bool GetDnsDomain(unsigned short* domain, unsigned int capacity) {
    std::string node;
    if (!NodeName(node)) return false;
    // The domain in the node's own name needs no resolver, which may be wrong about it, and may be slow.
    std::string text = DomainPart(node);
    if (text.empty()) {
        const std::string canonical = CanonicalName(node);
        // "localhost" is the name of every host for itself.
        if (HostPart(canonical) != "localhost") text = DomainPart(canonical);
    }
    return PutText(text, domain, capacity);
}

unsigned int ProcessorCount() {
    return static_cast<unsigned int>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
}

// Linux has no token object: the token stands for the process itself, and its user's security identifier is
// the effective user id.
Token OpenProcessToken() {
    static char process;
    return &process;
}

void CloseToken(Token) {}

bool GetTokenUser(Token, void* user, unsigned int capacity, unsigned int& length) {
    const uid_t id = geteuid();
    length = sizeof id;
    if (capacity < length) {
        SetLastCode(kInsufficientBuffer);
        return false;
    }
    std::memcpy(user, &id, sizeof id);
    return true;
}

bool LookupAccount(const void* user, unsigned short* name, unsigned short* domain, unsigned int capacity,
                   unsigned int& use) {
    uid_t id = 0;
    std::memcpy(&id, user, sizeof id);
    std::string account;
    use = kUserAccount;
    return AccountName(id, account) && PutText(account, name, capacity) && GetHostName(domain, capacity);
}

}  // namespace ZBase::os
