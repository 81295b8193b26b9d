#pragma once

#include <windows.h>

#include <vector>

namespace ZBase::os {

/// The security identifier of the user whom this process acts for; empty where the system refuses.
std::vector<unsigned char> OwnUser();

/// Whether what has this owner belongs to that user, or to whom new files of this process do by default: of
/// an administrator's they are the group's.
bool IsOwner(PSID owner);

/// Whether an open file or directory does, by its owner.
bool BelongsToUser(HANDLE file);

/// What lets the user of this process, and nobody else, do everything with a file or directory. It lives as
/// long as the object.
class OwnersOnly {
public:
    OwnersOnly();
    OwnersOnly(const OwnersOnly&) = delete;
    OwnersOnly& operator=(const OwnersOnly&) = delete;

    /// Null where the system refuses.
    SECURITY_ATTRIBUTES* Get() { return mIsThere ? &mAttributes : nullptr; }

private:
    std::vector<unsigned char> mUser;
    std::vector<unsigned char> mList;
    SECURITY_DESCRIPTOR mDescriptor{};
    SECURITY_ATTRIBUTES mAttributes{};
    bool mIsThere = false;
};

}  // namespace ZBase::os
