#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <fcntl.h>
#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

namespace {

/// A descriptor, closed at the end.
class File {
public:
    File(const char* path, int flags) : mDescriptor(open(path, flags | O_CLOEXEC, S_IRUSR | S_IWUSR)) {}
    ~File() {
        if (mDescriptor >= 0) close(mDescriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return mDescriptor >= 0; }
    int Descriptor() const { return mDescriptor; }

private:
    int mDescriptor;
};

bool WriteAll(const File& file, const char* octets, std::size_t size) {
    for (std::size_t done = 0; done != size;) {
        const ssize_t count = write(file.Descriptor(), octets + done, size - done);
        if (count < 0 && errno != EINTR) return false;
        if (count > 0) done += static_cast<std::size_t>(count);
    }
    return true;
}

bool Copy(const File& from, const File& to, off_t size, off_t most) {
    char piece[65536];
    if (size > most && lseek(from.Descriptor(), -most, SEEK_END) < 0) return false;
    for (off_t left = most; left > 0;) {
        const long count = ReadSome(from.Descriptor(), piece,
                                    std::min<std::size_t>(sizeof piece, static_cast<std::size_t>(left)));
        if (count <= 0) return count == 0;
        if (!WriteAll(to, piece, static_cast<std::size_t>(count))) return false;
        left -= count;
    }
    return true;
}

constexpr uid_t kNobody = 65534;

}  // namespace

int OpenToRead(const std::string& path) {
    return open(path.c_str(), O_RDONLY | O_CLOEXEC);
}

long ReadSome(int descriptor, char* room, std::size_t size) {
    for (;;) {
        const ssize_t count = read(descriptor, room, size);
        if (count >= 0 || errno != EINTR) return count;
    }
}

long ReadSomeAt(int descriptor, std::uint64_t offset, char* room, std::size_t size) {
    for (;;) {
        const ssize_t count = pread(descriptor, room, size, static_cast<off_t>(offset));
        if (count >= 0 || errno != EINTR) return count;
    }
}

std::optional<std::uint64_t> SizeOfOpenFile(int descriptor) {
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0) return std::nullopt;
    return static_cast<std::uint64_t>(facts.st_size);
}

void CloseDescriptor(int descriptor) {
    close(descriptor);
}

std::optional<std::uint64_t> RegularFileSize(const std::string& path) {
    struct stat facts {};
    if (stat(path.c_str(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
    return static_cast<std::uint64_t>(facts.st_size);
}

std::string CopyEnd(const std::string& file, const std::string& copy, std::uint64_t most) {
    const File from(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY);
    struct stat status {};
    if (!from.IsOpen() || fstat(from.Descriptor(), &status) != 0) return std::strerror(errno);
    if (!S_ISREG(status.st_mode)) return "no regular file";
    const File to(copy.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
    if (to.IsOpen() && Copy(from, to, status.st_size, static_cast<off_t>(most))) return "";
    std::string why = std::strerror(errno);
    unlink(copy.c_str());
    return why;
}

std::string MakeTemporaryDirectory(const std::string& name) {
    std::string path = std::filesystem::temp_directory_path() / (name + "-XXXXXX");
    if (mkdtemp(path.data()) == nullptr) throw FileFailure(path, errno);
    return path;
}

bool CanMakeFilesIn(const std::string& directory) {
    return access(directory.c_str(), W_OK | X_OK) == 0;
}

bool CanRead(const std::string& file) {
    return access(file.c_str(), R_OK) == 0;
}

std::string MakePrivateDirectory(const std::string& path) {
    return mkdir(path.c_str(), S_IRWXU) == 0 ? "" : std::strerror(errno);
}

bool IsOwnDirectory(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == geteuid();
}

ForbiddenFile::ForbiddenFile() : mName("/tmp/zbase-road-XXXXXX"), mState(geteuid()) {
    const int descriptor = mkstemp(mName.data());
    if (descriptor < 0 || fchmod(descriptor, 0) != 0) throw FileFailure(mName, errno);
    close(descriptor);
    if (mState == 0 && seteuid(kNobody) != 0) throw FileFailure(mName, errno);
}

ForbiddenFile::~ForbiddenFile() {
    if (mState == 0 && seteuid(0) != 0) std::abort();
    unlink(mName.c_str());
}

bool HasRightsOfAnother() {
    return getauxval(AT_SECURE) != 0 || geteuid() != getuid() || getegid() != getgid();
}
