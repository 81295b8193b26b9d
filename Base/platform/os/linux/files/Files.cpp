#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/linux/text/NativeText.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <string_view>

namespace ZBase::os {

bool PathExists(const unsigned short* path) {
    return access(ToNative(path).c_str(), F_OK) == 0;
}

bool IsOwnFile(const std::string& path) {
    struct stat file {};
    return lstat(path.c_str(), &file) == 0 && file.st_uid == geteuid();
}

std::FILE* OpenFile(const char* path, const char* mode) {
    return std::fopen(path, mode);
}

bool CreatePrivateDirectory(const unsigned short* path) {
    return mkdir(ToNative(path).c_str(), S_IRWXU) == 0;
}

namespace {

// Calls `visit` with the name and the status of all that stands there.
template <class Visitor>
void VisitEntries(const std::string& directory, Visitor visit) {
    const int place = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (place < 0) return;
    const struct Close {
        int file;
        ~Close() { close(file); }
    } closing{place};  // a visitor may throw
    alignas(dirent64) char names[8192];
    ssize_t size = 0;
    while ((size = getdents64(place, names, sizeof names)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(names + at);
            at += entry->d_reclen;
            struct stat file {};
            if (fstatat(place, entry->d_name, &file, AT_SYMLINK_NOFOLLOW) == 0) visit(entry->d_name, file);
        }
    }
}

}  // namespace

void VisitFiles(const std::string& directory, const std::function<void(const FileEntry&)>& visit) {
    VisitEntries(directory, [&](const char* name, const struct stat& file) {
        if (!S_ISREG(file.st_mode)) return;
        visit({name, static_cast<unsigned long long>(file.st_size), file.st_mtim.tv_sec,
               static_cast<unsigned int>(file.st_mtim.tv_nsec)});
    });
}

void VisitDirectories(const std::string& directory, const std::function<void(const char*)>& visit) {
    VisitEntries(directory, [&](const char* name, const struct stat& file) {
        const std::string_view view = name;
        if (S_ISDIR(file.st_mode) && view != "." && view != "..") visit(name);
    });
}

}  // namespace ZBase::os
