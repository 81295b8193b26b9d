#include <Base/platform/os/Files.h>
#include <Base/platform/os/linux/text/NativeText.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ZBase::os {

bool PathExists(const unsigned short* path) {
    return access(ToNative(path).c_str(), F_OK) == 0;
}

std::FILE* OpenFile(const char* path, const char* mode) {
    return std::fopen(path, mode);
}

bool CreatePrivateDirectory(const unsigned short* path) {
    return mkdir(ToNative(path).c_str(), S_IRWXU) == 0;
}

void VisitFiles(const std::string& directory, const std::function<void(const FileEntry&)>& visit) {
    const int place = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_CLOEXEC);
    if (place < 0) return;
    alignas(dirent64) char names[8192];
    ssize_t size = 0;
    while ((size = getdents64(place, names, sizeof names)) > 0) {
        for (ssize_t at = 0; at < size;) {
            const auto* const entry = reinterpret_cast<const dirent64*>(names + at);
            at += entry->d_reclen;
            struct stat file {};
            if (fstatat(place, entry->d_name, &file, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISREG(file.st_mode))
                continue;
            visit({entry->d_name, static_cast<unsigned long long>(file.st_size), file.st_mtim.tv_sec,
                   static_cast<unsigned int>(file.st_mtim.tv_nsec)});
        }
    }
    close(place);
}

}  // namespace ZBase::os
