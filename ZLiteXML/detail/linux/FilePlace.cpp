#include "FilePlace.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <cerrno>
#include <climits>

namespace ZLiteXML {

namespace {

constexpr int kMostLinks = 40;  // the kernel's limit

// Whether links in a directory lead to open files instead of names (/proc).
bool IsOfProcesses(int directory) {
    struct statfs facts {};
    return fstatfs(directory, &facts) == 0 && facts.f_type == PROC_SUPER_MAGIC;
}

}  // namespace

// From the directory of this place, or the current one.
int FilePlace::Step(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (path.empty()) return ENOENT;
    const int from = mDirectory.IsOpen() ? mDirectory.Get() : AT_FDCWD;
    Descriptor directory(openat(from, folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!directory.IsOpen()) return errno;
    if (name.empty() || name == "." || name == "..") return EISDIR;
    mDirectory = std::move(directory);
    mName = name;
    return 0;
}

int FilePlace::Find(const std::string& path) {
    return Step(path);
}

int FilePlace::FollowLinks() {
    // Enforces the kernel's rules for following links.
    const Descriptor end(openat(Directory(), Name(), O_PATH | O_CLOEXEC));
    if (!end.IsOpen() && errno != ENOENT) return errno;
    std::string link(PATH_MAX, '\0');
    for (int links = 0; links <= kMostLinks; ++links) {
        const ssize_t size = readlinkat(Directory(), Name(), link.data(), link.size());
        if (size < 0) return errno == EINVAL || errno == ENOENT ? 0 : errno;
        if (IsOfProcesses(Directory())) return 0;
        const int error = Step(link.substr(0, static_cast<std::size_t>(size)));
        if (error != 0) return error;
    }
    return ELOOP;
}

int FilePlace::Look(struct stat& facts) const {
    return fstatat(Directory(), Name(), &facts, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

int FilePlace::OpenDirectory(Descriptor& directory) const {
    directory = Descriptor(openat(Directory(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return directory.IsOpen() || errno == EACCES ? 0 : errno;
}

}  // namespace ZLiteXML
