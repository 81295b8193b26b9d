#include <Base/messages/MessageDomains.h>
#include <Base/messages/detail/AsciiCase.h>

#include <array>
#include <cstddef>
#include <iterator>

namespace ZBase {

const unsigned short MESSAGE_DOMAIN_UNKNOWN = 0;
const unsigned short MESSAGE_DOMAIN_ERRNO = 10;
const unsigned short MESSAGE_DOMAIN_WIN32_API = 100;
const unsigned short MESSAGE_DOMAIN_WIN32_EXCEPTION = 101;
const unsigned short MESSAGE_DOMAIN_SERVER = 300;

namespace {

constexpr unsigned short kAppleSignal = 214;

struct Domain {
    unsigned short number;
    const char* name;
};

constexpr Domain kDomains[] = {
    {0, "Unknown"},
    {10, "Windows Standard C Library"},
    {11, "Solaris Standard C Library"},
    {12, "AIX Standard C Library"},
    {13, "Linux Standard C Library"},
    {14, "HP-UX Standard C Library"},
    {15, "APPLE Standard C Library"},
    {100, "Windows API"},
    {101, "Windows Standard Exception"},
    {200, "UNIX Dynamic Linking"},
    {210, "Solaris Signal"},
    {211, "AIX Signal"},
    {212, "Linux Signal"},
    {213, "HP-UX Signal"},
    {kAppleSignal, "APPLE Signal"},
    {300, "Server"},
};

// The row of each number; the first, "Unknown", for numbers without a domain.
constexpr auto kRows = [] {
    std::array<unsigned char, std::end(kDomains)[-1].number + 1> rows{};
    for (unsigned char row = 0; row != std::size(kDomains); ++row) rows[kDomains[row].number] = row;
    return rows;
}();

}  // namespace

const char* ToString(unsigned short domain) {
    return kDomains[domain < kRows.size() ? kRows[domain] : 0].name;
}

unsigned short ToMessageDomain(const char* name) {
    if (name == nullptr) return MESSAGE_DOMAIN_UNKNOWN;
    for (const Domain& row : kDomains) {
        if (row.number == kAppleSignal) continue;  // read back as 0; the XML form has it so
        if (detail::EqualsInAnyAsciiCase(row.name, name)) return row.number;
    }
    return MESSAGE_DOMAIN_UNKNOWN;
}

}  // namespace ZBase
