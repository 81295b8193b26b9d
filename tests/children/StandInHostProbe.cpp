// StandInHostProbe QUESTION [ARGUMENT]: calls the library with a resolver that knows only the file
// ZBASE_TEST_HOSTS, on a host with the name ZBASE_TEST_NODE and an interface with the address
// ZBASE_TEST_INTERFACE, if that is one. For machines where a test may not have a namespace of its own.

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <sys/utsname.h>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/children/HostProbe.h"

namespace {

const char* NodeName() {
    const char* const name = std::getenv("ZBASE_TEST_NODE");
    return name == nullptr ? "box" : name;
}

struct Host {
    int family;
    unsigned char octets[16];
    std::string canonicalName;
};

bool Parse(const std::string& text, Host& host) {
    for (const int family : {AF_INET, AF_INET6}) {
        host.family = family;
        if (inet_pton(family, text.c_str(), host.octets) == 1) return true;
    }
    return false;
}

// Calls `visit(host, name)` for each name of each line.
template <class Visitor>
void ForEachName(Visitor visit) {
    std::ifstream file(std::getenv("ZBASE_TEST_HOSTS"));
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string word;
        Host host{};
        if (!(words >> word) || !Parse(word, host)) continue;
        while (words >> word) {
            if (host.canonicalName.empty()) host.canonicalName = word;
            visit(host, word);
        }
    }
}

addrinfo* MakeEntry(const Host& host) {
    auto* storage = static_cast<sockaddr_storage*>(std::calloc(1, sizeof(sockaddr_storage)));
    auto* entry = static_cast<addrinfo*>(std::calloc(1, sizeof(addrinfo)));
    storage->ss_family = static_cast<sa_family_t>(host.family);
    if (host.family == AF_INET) {
        std::memcpy(&reinterpret_cast<sockaddr_in*>(storage)->sin_addr, host.octets, 4);
    } else {
        std::memcpy(&reinterpret_cast<sockaddr_in6*>(storage)->sin6_addr, host.octets, 16);
    }
    entry->ai_family = host.family;
    entry->ai_addr = reinterpret_cast<sockaddr*>(storage);
    entry->ai_addrlen = host.family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    entry->ai_canonname = strdup(host.canonicalName.c_str());
    return entry;
}

}  // namespace

extern "C" {

int getaddrinfo(const char* name, const char*, const addrinfo* hints, addrinfo** result) {
    const int family = hints == nullptr ? AF_UNSPEC : hints->ai_family;
    addrinfo** end = result;
    *end = nullptr;
    const auto add = [&](const Host& host) {
        if (family != AF_UNSPEC && family != host.family) return;
        *end = MakeEntry(host);
        end = &(*end)->ai_next;
    };
    Host number{};
    if (Parse(name, number)) {
        add(number);
    } else {
        ForEachName([&](const Host& host, const std::string& known) {
            if (known == name) add(host);
        });
    }
    return *result == nullptr ? EAI_NONAME : 0;
}

void freeaddrinfo(addrinfo* list) noexcept {
    while (list != nullptr) {
        addrinfo* next = list->ai_next;
        std::free(list->ai_addr);
        std::free(list->ai_canonname);
        std::free(list);
        list = next;
    }
}

int getnameinfo(const sockaddr* address, socklen_t, char* text, socklen_t capacity, char*, socklen_t,
                int flags) {
    const bool isIPv4 = address->sa_family == AF_INET;
    const void* octets =
        isIPv4 ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in*>(address)->sin_addr)
               : &reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr;
    if (inet_ntop(address->sa_family, octets, text, capacity) == nullptr) return EAI_OVERFLOW;
    if ((flags & NI_NUMERICHOST) != 0) return 0;
    ForEachName([&](const Host& host, const std::string&) {
        if (host.family == address->sa_family && std::memcmp(host.octets, octets, isIPv4 ? 4 : 16) == 0) {
            std::strncpy(text, host.canonicalName.c_str(), capacity - 1);
        }
    });
    return 0;
}

int gethostname(char* name, std::size_t) noexcept {
    std::strcpy(name, NodeName());
    return 0;
}

int uname(utsname* system) noexcept {
    *system = {};
    std::strcpy(system->nodename, NodeName());
    return 0;
}

int getifaddrs(ifaddrs** result) noexcept {
    static char name[] = "stand-in";
    static sockaddr_in address{};
    static ifaddrs interface {};
    const char* const text = std::getenv("ZBASE_TEST_INTERFACE");
    const bool any = text != nullptr && inet_pton(AF_INET, text, &address.sin_addr) == 1;
    address.sin_family = AF_INET;
    interface.ifa_name = name;
    interface.ifa_flags = IFF_UP;
    interface.ifa_addr = reinterpret_cast<sockaddr*>(&address);
    *result = any ? &interface : nullptr;
    return 0;
}

void freeifaddrs(ifaddrs*) noexcept {}
}

int main(int argc, char** argv) {
    return probe::Run(argc, argv);
}
