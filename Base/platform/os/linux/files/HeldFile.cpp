#include <Base/platform/os/files/HeldFile.h>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZBase::os {

namespace {

int Descriptor(std::intptr_t file) {
    return static_cast<int>(file);
}

}  // namespace

bool HeldFile::Hold(const std::string& path) {
    return Take(path, false);
}

bool HeldFile::HoldDirectory(const std::string& path) {
    return Take(path, true);
}

bool HeldFile::IsOwn() const {
    struct stat held {};
    return fstat(Descriptor(mFile), &held) == 0 && held.st_uid == geteuid();
}

void HeldFile::LetGo() {
    if (mFile < 0) return;
    flock(Descriptor(mFile), LOCK_UN);  // a forked child may have the file open too
    close(Descriptor(mFile));
    mFile = -1;
}

// A file that was renamed or removed between open and lock is refused.
bool HeldFile::Take(const std::string& path, bool isDirectory) {
    LetGo();
    mFile = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (mFile < 0) return false;
    struct stat held {};
    struct stat named {};
    const bool isKind =
        fstat(Descriptor(mFile), &held) == 0 && (isDirectory ? S_ISDIR(held.st_mode) : S_ISREG(held.st_mode));
    if (isKind && flock(Descriptor(mFile), LOCK_EX | LOCK_NB) == 0 && lstat(path.c_str(), &named) == 0 &&
        held.st_ino == named.st_ino && held.st_dev == named.st_dev)
        return true;
    LetGo();
    return false;
}

}  // namespace ZBase::os
