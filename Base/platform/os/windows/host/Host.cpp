#include <Base/platform/os/host/Host.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

namespace ZBase::os {

namespace {

bool ComputerName(COMPUTER_NAME_FORMAT kind, unsigned short* name, unsigned int capacity) {
    DWORD size = capacity;
    return GetComputerNameExW(kind, ToSystem(name), &size) != 0;
}

}  // namespace

bool GetHostName(unsigned short* name, unsigned int capacity) {
    DWORD size = capacity;
    return GetComputerNameW(ToSystem(name), &size) != 0;
}

bool GetDnsHostName(unsigned short* name, unsigned int capacity) {
    return ComputerName(ComputerNameDnsHostname, name, capacity);
}

bool GetDnsDomain(unsigned short* domain, unsigned int capacity) {
    return ComputerName(ComputerNameDnsDomain, domain, capacity);
}

unsigned int ProcessorCount() {
    SYSTEM_INFO facts{};
    GetSystemInfo(&facts);
    return facts.dwNumberOfProcessors;
}

Token OpenProcessToken() {
    HANDLE token = nullptr;
    return ::OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) != 0 ? token : nullptr;
}

void CloseToken(Token token) {
    CloseHandle(token);
}

// What is written is a `TOKEN_USER` and behind it the identifier that it points to.
bool GetTokenUser(Token token, void* user, unsigned int capacity, unsigned int& length) {
    DWORD needed = 0;
    const bool succeeded = GetTokenInformation(token, TokenUser, user, capacity, &needed) != 0;
    length = needed;
    return succeeded;
}

bool LookupAccount(const void* user, unsigned short* name, unsigned short* domain, unsigned int capacity,
                   unsigned int& use) {
    DWORD nameSize = capacity;
    DWORD domainSize = capacity;
    SID_NAME_USE kind = SidTypeUnknown;
    const PSID identifier = static_cast<const TOKEN_USER*>(user)->User.Sid;
    const bool succeeded = LookupAccountSidW(nullptr, identifier, ToSystem(name), &nameSize, ToSystem(domain),
                                             &domainSize, &kind) != 0;
    use = static_cast<unsigned int>(kind);
    return succeeded;
}

}  // namespace ZBase::os
