#include <Base/platform/os/windows/files/OwnSecurity.h>

namespace ZBase::os {

std::vector<unsigned char> OwnUser() {
    HANDLE token = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token) == 0) return {};
    DWORD length = 0;
    GetTokenInformation(token, TokenUser, nullptr, 0, &length);
    std::vector<unsigned char> facts(length);
    const bool succeeded = GetTokenInformation(token, TokenUser, facts.data(), length, &length) != 0;
    CloseHandle(token);
    if (!succeeded || facts.size() < sizeof(TOKEN_USER)) return {};
    const PSID user = reinterpret_cast<const TOKEN_USER*>(facts.data())->User.Sid;
    const auto* const first = static_cast<const unsigned char*>(user);
    return {first, first + GetLengthSid(user)};
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
               SetSecurityDescriptorDacl(&mDescriptor, TRUE, list, FALSE) != 0 &&
               SetSecurityDescriptorControl(&mDescriptor, SE_DACL_PROTECTED, SE_DACL_PROTECTED) != 0;
    mAttributes = {sizeof mAttributes, &mDescriptor, FALSE};
}

}  // namespace ZBase::os
