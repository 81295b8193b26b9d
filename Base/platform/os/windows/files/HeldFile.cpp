#include <Base/platform/os/files/HeldFile.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/files/FileLock.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

#include <windows.h>

#include <cerrno>
#include <cwchar>

// A file is held by a lock on an octet that no file is long enough to have: a lock keeps others even from
// reading what it covers. A directory has no octets; what stands for it is a name of the system's made of its
// number, which exists as long as somebody has it open.

namespace ZBase::os {

namespace {

constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE ToHandle(std::intptr_t file) {
    return reinterpret_cast<HANDLE>(file);
}

// Of one directory all have the same name, by whichever path they came.
HANDLE OpenNameOf(const BY_HANDLE_FILE_INFORMATION& facts) {
    wchar_t name[64];
    swprintf(name, sizeof name / sizeof *name, L"Global\\ZBase-directory-%08lx-%08lx%08lx",
             facts.dwVolumeSerialNumber, facts.nFileIndexHigh, facts.nFileIndexLow);
    const HANDLE event = CreateEventW(nullptr, TRUE, FALSE, name);
    if (event == nullptr || GetLastError() != ERROR_ALREADY_EXISTS) return event;
    CloseHandle(event);
    return nullptr;
}

// The numbers of the reasons that callers tell apart; a file that somebody shares with nobody is in use.
int ReasonOf(DWORD code) {
    switch (code) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
            return ENOENT;
        case ERROR_SHARING_VIOLATION:
            return EWOULDBLOCK;
        default:
            return EACCES;
    }
}

}  // namespace

bool HeldFile::Hold(const std::string& path) {
    return Take(path, false);
}

bool HeldFile::HoldDirectory(const std::string& path) {
    return Take(path, true);
}

bool HeldFile::IsOwn() const {
    return BelongsToUser(ToHandle(mFile));
}

void HeldFile::LetGo() {
    if (mFile != -1) CloseHandle(ToHandle(mFile));
    if (mName != 0) CloseHandle(ToHandle(mName));
    mFile = -1;
    mName = 0;
}

bool HeldFile::Take(const std::string& path, bool isDirectory) {
    LetGo();
    const HANDLE file =
        CreateFileW(FromUtf8(path).c_str(), GENERIC_READ | READ_CONTROL, kShared, nullptr, OPEN_EXISTING,
                    FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        errno = ReasonOf(GetLastError());
        return false;
    }
    mFile = reinterpret_cast<std::intptr_t>(file);
    BY_HANDLE_FILE_INFORMATION facts{};
    constexpr DWORD kinds = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE;
    const DWORD wanted = isDirectory ? FILE_ATTRIBUTE_DIRECTORY : 0;
    bool isHeld = GetFileType(file) == FILE_TYPE_DISK && GetFileInformationByHandle(file, &facts) != 0 &&
                  (facts.dwFileAttributes & kinds) == wanted;
    if (isHeld && isDirectory) {
        mName = reinterpret_cast<std::intptr_t>(OpenNameOf(facts));
        isHeld = mName != 0;
    } else if (isHeld) {
        isHeld = LockFarOut(file);
    }
    if (!isHeld) {
        LetGo();
        errno = EWOULDBLOCK;
    }
    return isHeld;
}

}  // namespace ZBase::os
