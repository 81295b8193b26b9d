#include "NewFile.h"
#include "Transfer.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/xattr.h>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace ZLiteXML {

namespace {

constexpr int kAttempts = 16;  // to find a free name
constexpr mode_t kOwnersOnly = S_IRUSR | S_IWUSR;
constexpr mode_t kEverybody = kOwnersOnly | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;  // without the umask
constexpr char kAccessList[] = "system.posix_acl_access";

// Short, whatever the length of the final name.
std::string TemporaryName() {
    static std::atomic<std::uint64_t> count = 0;
    std::uint64_t number = 0;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof number))
        number = static_cast<std::uint64_t>(time(nullptr)) << 32 ^
                 static_cast<std::uint64_t>(getpid()) << 16 ^ ++count;
    char name[40];
    std::snprintf(name, sizeof name, ".zlitexml-%016llx.part", static_cast<unsigned long long>(number));
    return name;
}

// An access list overrides the permissions, whose group bits are then only its mask.
bool CopyAccessList(int from, int to) {
    char list[4096];
    const ssize_t size = fgetxattr(from, kAccessList, list, sizeof list);
    if (size < 0 && errno == EOPNOTSUPP) return true;
    // Default entries from the directory are removed too.
    if (size < 0) return errno == ENODATA && (fremovexattr(to, kAccessList) == 0 || errno == ENODATA);
    return fsetxattr(to, kAccessList, list, static_cast<std::size_t>(size), 0) == 0;
}

// The group gets the rights of others.
mode_t WithoutGroup(mode_t mode) {
    return mode & (~static_cast<mode_t>(S_IRWXG) | (mode & S_IRWXO) << 3);
}

}  // namespace

int NewFile::Create(const FilePlace& place, const struct stat* old) {
    mpPlace = &place;
    const mode_t mode = old == nullptr ? kEverybody : old->st_mode & kOwnersOnly;
    mFile = Descriptor(openat(place.Directory(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode));
    for (int attempt = 0; !IsOpen() && attempt < kAttempts; ++attempt) {
        mName = TemporaryName();
        mFile = Descriptor(openat(place.Directory(), mName.c_str(),
                                  O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode));
        if (IsOpen()) break;
        mName.clear();
        if (errno != EEXIST) return errno;
    }
    return IsOpen() ? 0 : EEXIST;
}

int NewFile::CreateElsewhere() {
    mpPlace = nullptr;
    const char* chosen = std::getenv("TMPDIR");
    for (const char* folder : {chosen, "/tmp", "/var/tmp"}) {
        if (folder == nullptr || *folder == 0) continue;
        mFile = Descriptor(open(folder, O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, kOwnersOnly));
        if (IsOpen()) return 0;
    }
    mFile = Descriptor(memfd_create("zlitexml", MFD_CLOEXEC));
    return IsOpen() ? 0 : errno;
}

int NewFile::TakeAfter(const FilePlace& place, const struct stat& old) {
    struct stat now {};
    if (fstat(Get(), &now) != 0) return errno;
    const Descriptor source(
        openat(place.Directory(), place.Name(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!source.IsOpen() && (errno == EMFILE || errno == ENFILE || errno == ENOMEM)) return errno;
    mode_t mode = old.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    const bool hasOwner = old.st_uid == now.st_uid || fchown(Get(), old.st_uid, static_cast<gid_t>(-1)) == 0;
    const bool hasGroup = old.st_gid == now.st_gid || fchown(Get(), static_cast<uid_t>(-1), old.st_gid) == 0;
    if (hasOwner && hasGroup) mode = old.st_mode & 07777;
    if (!hasGroup || !source.IsOpen() || !CopyAccessList(source.Get(), Get())) mode = WithoutGroup(mode);
    fchmod(Get(), mode);
    return 0;
}

int NewFile::TakePlace() {
    if (mpPlace == nullptr) return EXDEV;
    if (fsync(Get()) != 0) return errno;
    Descriptor directory;
    int error = mpPlace->OpenDirectory(directory);
    if (error == 0 && mName.empty()) error = Name();
    if (error != 0) return error;
    if (renameat(mpPlace->Directory(), mName.c_str(), mpPlace->Directory(), mpPlace->Name()) != 0)
        return errno;
    mName.clear();
    return !directory.IsOpen() || fsync(directory.Get()) == 0 || errno == EINVAL ? 0 : errno;
}

int NewFile::Name() {
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        mName = TemporaryName();
        const int error = LinkOnce();
        if (error == 0) return 0;
        mName.clear();
        if (error != EEXIST) return CopyUnderName();
    }
    return EEXIST;
}

// By the link in /proc that every process may use, or without /proc by the call that needs a privilege.
int NewFile::LinkOnce() {
    const std::string self = "/proc/self/fd/" + std::to_string(Get());
    if (linkat(AT_FDCWD, self.c_str(), mpPlace->Directory(), mName.c_str(), AT_SYMLINK_FOLLOW) == 0) return 0;
    if (errno == EEXIST) return EEXIST;
    return linkat(Get(), "", mpPlace->Directory(), mName.c_str(), AT_EMPTY_PATH) == 0 ? 0 : errno;
}

int NewFile::CopyUnderName() {
    struct stat facts {};
    if (fstat(Get(), &facts) != 0) return errno;
    const std::string name = TemporaryName();
    Descriptor copy(openat(mpPlace->Directory(), name.c_str(),
                           O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, facts.st_mode & kOwnersOnly));
    if (!copy.IsOpen()) return errno;
    mName = name;
    const int error = CopyAll(Get(), copy.Get());
    if (error != 0) return error;
    if (fchown(copy.Get(), facts.st_uid, facts.st_gid) == 0) {
        const mode_t mode = facts.st_mode & 07777;
        fchmod(copy.Get(), CopyAccessList(Get(), copy.Get()) ? mode : WithoutGroup(mode));
    }
    mFile = std::move(copy);
    return fsync(Get()) == 0 ? 0 : errno;
}

void NewFile::RemoveName() {
    if (!mName.empty()) unlinkat(mpPlace->Directory(), mName.c_str(), 0);
    mName.clear();
}

}  // namespace ZLiteXML
