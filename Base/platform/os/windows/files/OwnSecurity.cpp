#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

#include <aclapi.h>

namespace ZBase::os {

namespace {

// An identifier in this process's token, to which the record begins with a pointer.
std::vector<unsigned char> InToken(TOKEN_INFORMATION_CLASS kind) {
    HANDLE token = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == 0) return {};
    DWORD length = 0;
    GetTokenInformation(token, kind, nullptr, 0, &length);
    std::vector<unsigned char> facts(length);
    const bool succeeded = GetTokenInformation(token, kind, facts.data(), length, &length) != 0;
    CloseHandle(token);
    if (!succeeded || facts.size() < sizeof(PSID)) return {};
    const PSID identifier = *reinterpret_cast<const PSID*>(facts.data());
    const auto* const first = static_cast<const unsigned char*>(identifier);
    return {first, first + GetLengthSid(identifier)};
}

}  // namespace

std::vector<unsigned char> OwnUser() {
    return InToken(TokenUser);
}

bool IsOwner(PSID owner) {
    for (const TOKEN_INFORMATION_CLASS kind : {TokenUser, TokenOwner}) {
        std::vector<unsigned char> identifier = InToken(kind);
        if (owner != nullptr && !identifier.empty() && EqualSid(owner, identifier.data()) != 0) return true;
    }
    return false;
}

bool BelongsToUser(HANDLE file) {
    PSID owner = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (GetSecurityInfo(file, SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr, nullptr, nullptr,
                        &descriptor) != ERROR_SUCCESS)
        return false;
    const bool isOwn = IsOwner(owner);
    LocalFree(descriptor);
    return isOwn;
}

bool IsOwnFile(const std::string& path) {
    const HANDLE file = CreateFileW(
        FromUtf8(path).c_str(), READ_CONTROL, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
        OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    const bool isOwn = BelongsToUser(file);
    CloseHandle(file);
    return isOwn;
}

// The user by name, not "the owner": not every system keeps rights of the owner as such.
OwnersOnly::OwnersOnly() : mUser(OwnUser()) {
    if (mUser.empty()) return;
    constexpr DWORD inherited = OBJECT_INHERIT_ACE | CONTAINER_INHERIT_ACE;
    mList.resize(sizeof(ACL) + sizeof(ACCESS_ALLOWED_ACE) + mUser.size());
    auto* const list = reinterpret_cast<ACL*>(mList.data());
    mIsThere = InitializeAcl(list, static_cast<DWORD>(mList.size()), ACL_REVISION) != 0 &&
               AddAccessAllowedAceEx(list, ACL_REVISION, inherited, GENERIC_ALL, mUser.data()) != 0 &&
               InitializeSecurityDescriptor(&mDescriptor, SECURITY_DESCRIPTOR_REVISION) != 0 &&
               SetSecurityDescriptorOwner(&mDescriptor, mUser.data(), FALSE) != 0 &&
               SetSecurityDescriptorDacl(&mDescriptor, TRUE, list, FALSE) != 0 &&
               SetSecurityDescriptorControl(&mDescriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED) != 0;
    mAttributes = {sizeof mAttributes, &mDescriptor, FALSE};
}

}  // namespace ZBase::os
