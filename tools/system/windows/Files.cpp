#include "tools/system/Files.h"
#include "tools/zbase/terminal/Console.h"

#include <windows.h>

#include <fcntl.h>
#include <io.h>
#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <random>
#include <vector>

#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

namespace {

using ZBase::os::FromUtf8;
using ZBase::os::OwnersOnly;

constexpr DWORD kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

/// A file, closed at the end.
class File {
public:
    File(const std::string& path, DWORD access, DWORD creation, SECURITY_ATTRIBUTES* owner, DWORD flags)
        : mHandle(CreateFileW(FromUtf8(path).c_str(), access, kShared, owner, creation, flags, nullptr)) {}
    ~File() {
        if (IsOpen()) CloseHandle(mHandle);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    bool IsOpen() const { return mHandle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return mHandle; }

private:
    HANDLE mHandle;
};

std::string Why(DWORD code) {
    wchar_t text[256];
    DWORD length = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr, code,
                                  MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US), text, 256, nullptr);
    while (length != 0 &&
           (text[length - 1] == L'\n' || text[length - 1] == L'\r' || text[length - 1] == L'.'))
        --length;
    return length == 0 ? "error " + std::to_string(code) : ZBase::os::ToUtf8({text, length});
}

bool Copy(HANDLE from, HANDLE to, std::uint64_t size, std::uint64_t most) {
    LARGE_INTEGER place{};
    place.QuadPart = static_cast<LONGLONG>(size > most ? size - most : 0);
    if (!SetFilePointerEx(from, place, nullptr, FILE_BEGIN)) return false;
    std::vector<char> piece(65536);
    for (std::uint64_t left = most; left != 0;) {
        DWORD count = 0;
        DWORD written = 0;
        if (!ReadFile(from, piece.data(), static_cast<DWORD>(std::min<std::uint64_t>(piece.size(), left)),
                      &count, nullptr))
            return false;
        if (count == 0) return true;
        if (!WriteFile(to, piece.data(), count, &written, nullptr) || written != count) return false;
        left -= count;
    }
    return true;
}

// The number of the C library for the last failure of the system.
int ErrorNumber() {
    switch (GetLastError()) {
        case ERROR_FILE_NOT_FOUND:
        case ERROR_PATH_NOT_FOUND:
        case ERROR_INVALID_NAME:
        case ERROR_BAD_PATHNAME:
        case ERROR_BAD_NETPATH:
            return ENOENT;
        case ERROR_WRITE_PROTECT:
            return EROFS;
        case ERROR_ALREADY_EXISTS:
        case ERROR_FILE_EXISTS:
            return EEXIST;
        default:
            return EACCES;
    }
}

// Whether a file or directory can be opened for this, shared with everybody.
bool CanOpen(const std::string& path, DWORD access) {
    const File file(path, access, OPEN_EXISTING, nullptr, FILE_FLAG_BACKUP_SEMANTICS);
    if (!file.IsOpen()) errno = ErrorNumber();
    return file.IsOpen();
}

std::string TemporaryName(const std::string& name) {
    static std::random_device random;
    return (std::filesystem::temp_directory_path() / (name + "-" + std::to_string(random()))).string();
}

}  // namespace

int OpenToRead(const std::string& path) {
    const std::wstring wide = FromUtf8(path);
    const int descriptor = _wopen(wide.c_str(), _O_RDONLY | _O_BINARY | _O_NOINHERIT);
    const DWORD kind = descriptor < 0 ? GetFileAttributesW(wide.c_str()) : INVALID_FILE_ATTRIBUTES;
    if (kind != INVALID_FILE_ATTRIBUTES && (kind & FILE_ATTRIBUTE_DIRECTORY) != 0) errno = EISDIR;
    return descriptor;
}

long ReadSome(int descriptor, char* room, std::size_t size) {
    if (descriptor == 0) _setmode(descriptor, _O_BINARY);
    return _read(descriptor, room, static_cast<unsigned int>(std::min<std::size_t>(size, 1 << 20)));
}

long ReadSomeAt(int descriptor, std::uint64_t offset, char* room, std::size_t size) {
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(offset);
    place.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD count = 0;
    const auto most = static_cast<DWORD>(std::min<std::size_t>(size, 1 << 20));
    if (ReadFile(reinterpret_cast<HANDLE>(_get_osfhandle(descriptor)), room, most, &count, &place))
        return static_cast<long>(count);
    if (GetLastError() == ERROR_HANDLE_EOF) return 0;
    errno = ErrorNumber();
    return -1;
}

std::optional<std::uint64_t> SizeOfOpenFile(int descriptor) {
    LARGE_INTEGER size{};
    if (GetFileSizeEx(reinterpret_cast<HANDLE>(_get_osfhandle(descriptor)), &size))
        return static_cast<std::uint64_t>(size.QuadPart);
    errno = ErrorNumber();
    return std::nullopt;
}

void CloseDescriptor(int descriptor) {
    _close(descriptor);
}

std::optional<std::uint64_t> RegularFileSize(const std::string& path) {
    WIN32_FILE_ATTRIBUTE_DATA facts{};
    constexpr DWORD others = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE;
    if (!GetFileAttributesExW(FromUtf8(path).c_str(), GetFileExInfoStandard, &facts) ||
        (facts.dwFileAttributes & others) != 0)
        return std::nullopt;
    return std::uint64_t{facts.nFileSizeHigh} << 32 | facts.nFileSizeLow;
}

std::string CopyEnd(const std::string& file, const std::string& copy, std::uint64_t most) {
    const DWORD kind = GetFileAttributesW(FromUtf8(file).c_str());
    if (kind == INVALID_FILE_ATTRIBUTES) return Why(GetLastError());
    if ((kind & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_DEVICE)) != 0) return "no regular file";
    const File from(file, GENERIC_READ, OPEN_EXISTING, nullptr, FILE_FLAG_SEQUENTIAL_SCAN);
    LARGE_INTEGER size{};
    if (!from.IsOpen()) return Why(GetLastError());
    if (GetFileType(from.Get()) != FILE_TYPE_DISK || !GetFileSizeEx(from.Get(), &size))
        return "no regular file";
    OwnersOnly owner;
    std::string why;
    {
        const File to(copy, GENERIC_WRITE, CREATE_NEW, owner.Get(), FILE_ATTRIBUTE_NORMAL);
        if (!to.IsOpen()) return Why(GetLastError());
        if (Copy(from.Get(), to.Get(), static_cast<std::uint64_t>(size.QuadPart), most)) return "";
        why = Why(GetLastError());
    }
    DeleteFileW(FromUtf8(copy).c_str());
    return why;
}

std::string MakeTemporaryDirectory(const std::string& name) {
    constexpr int attempts = 16;
    std::string path;
    for (int i = 0; i != attempts; ++i) {
        path = TemporaryName(name);
        OwnersOnly owner;
        if (owner.Get() != nullptr && CreateDirectoryW(FromUtf8(path).c_str(), owner.Get())) return path;
        if (GetLastError() != ERROR_ALREADY_EXISTS) break;
    }
    throw FileFailure(path, ErrorNumber());
}

bool CanMakeFilesIn(const std::string& directory) {
    return CanOpen(directory, FILE_ADD_FILE);
}

bool CanRead(const std::string& file) {
    return CanOpen(file, FILE_READ_DATA);
}

std::string MakePrivateDirectory(const std::string& path) {
    OwnersOnly owner;
    if (owner.Get() != nullptr && CreateDirectoryW(FromUtf8(path).c_str(), owner.Get())) return "";
    return Why(GetLastError());
}

bool IsOwnDirectory(const std::string& path) {
    const DWORD kind = GetFileAttributesW(FromUtf8(path).c_str());
    return kind != INVALID_FILE_ATTRIBUTES && (kind & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
           (kind & FILE_ATTRIBUTE_REPARSE_POINT) == 0 && ZBase::os::IsOwnFile(path);
}

// It is open and shared with nobody, which keeps the administrator away as well.
ForbiddenFile::ForbiddenFile() : mName(TemporaryName("zbase-road")) {
    const HANDLE file = CreateFileW(FromUtf8(mName).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                                    FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
    if (file == INVALID_HANDLE_VALUE) throw FileFailure(mName, ErrorNumber());
    mState = reinterpret_cast<std::intptr_t>(file);
}

ForbiddenFile::~ForbiddenFile() {
    CloseHandle(reinterpret_cast<HANDLE>(mState));
}

// No program has here what its file gives it.
bool HasRightsOfAnother() {
    return false;
}
