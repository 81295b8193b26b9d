#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

// Files as the commands need them of the system. Paths are UTF-8.

/// A descriptor of a file that is open for reading, octets as they are; -1 with `errno` if it can't be
/// opened.
int OpenToRead(const std::string& path);

/// Reads up to `size` octets; 0 at the end, -1 with `errno`.
long ReadSome(int descriptor, char* room, std::size_t size);

/// Reads up to `size` octets from `offset` on, for any number of threads at once; 0 at the end, -1 with
/// `errno`.
long ReadSomeAt(int descriptor, std::uint64_t offset, char* room, std::size_t size);

/// Octets in an open file; none with `errno`.
std::optional<std::uint64_t> SizeOfOpenFile(int descriptor);

void CloseDescriptor(int descriptor);

/// Of a regular file.
std::optional<std::uint64_t> RegularFileSize(const std::string& path);

/// Copies the last `most` octets of a regular file into a new one that only the user can read. Why it could
/// not; empty if it did. Some files of the system say that they are empty and are not; others grow while they
/// are read; a pipe that nobody writes to is not waited for.
std::string CopyEnd(const std::string& file, const std::string& copy, std::uint64_t most);

/// Makes a directory for temporary files, of which `name` is the beginning. Throws `Failure`.
std::string MakeTemporaryDirectory(const std::string& name);

/// One that is removed, with all that is in it, at the end of the object.
class TemporaryDirectory {
public:
    explicit TemporaryDirectory(const std::string& name) : mPath(MakeTemporaryDirectory(name)) {}
    ~TemporaryDirectory() {
        std::error_code ignored;
        std::filesystem::remove_all(mPath, ignored);
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    const std::filesystem::path& Path() const { return mPath; }

private:
    std::filesystem::path mPath;
};

/// Whether this process may make files in a directory; false with `errno`.
bool CanMakeFilesIn(const std::string& directory);

/// Whether this process may read a file; false with `errno`.
bool CanRead(const std::string& file);

/// Makes a directory that only the user can read. Why it could not; empty if it did.
std::string MakePrivateDirectory(const std::string& path);

/// Whether a directory, and no link, is the user's own.
bool IsOwnDirectory(const std::string& path);

/// A file of this process that its user may not read, while the object lives. An administrator may read
/// everything, and meanwhile becomes an ordinary user where that is the only way. Throws `Failure`.
class ForbiddenFile {
public:
    ForbiddenFile();
    ~ForbiddenFile();
    ForbiddenFile(const ForbiddenFile&) = delete;
    ForbiddenFile& operator=(const ForbiddenFile&) = delete;

    const std::string& Name() const { return mName; }

private:
    std::string mName;
    std::intptr_t mState = 0;
};

/// Whether this program runs with the rights of another user than who started it.
bool HasRightsOfAnother();
