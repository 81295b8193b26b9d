#include <Base/platform/os/files/Files.h>
#include <Base/platform/os/windows/WideText.h>
#include <Base/platform/os/windows/files/OwnSecurity.h>

#include <windows.h>
#include <string_view>

namespace ZBase::os {

namespace {

// Ticks of 100 ns since 1601.
constexpr unsigned long long kTicksPerSecond = 10'000'000;
constexpr long long kSecondsTo1970 = 11'644'473'600;

unsigned long long Join(DWORD high, DWORD low) {
    return static_cast<unsigned long long>(high) << 32 | low;
}

FileEntry Describe(const WIN32_FIND_DATAW& found, const char* name) {
    const unsigned long long ticks =
        Join(found.ftLastWriteTime.dwHighDateTime, found.ftLastWriteTime.dwLowDateTime);
    return {name, Join(found.nFileSizeHigh, found.nFileSizeLow),
            static_cast<long long>(ticks / kTicksPerSecond) - kSecondsTo1970,
            static_cast<unsigned int>(ticks % kTicksPerSecond * 100)};
}

}  // namespace

bool PathExists(const unsigned short* path) {
    return GetFileAttributesW(ToSystem(path)) != INVALID_FILE_ATTRIBUTES;
}

std::FILE* OpenFile(const char* path, const char* mode) {
    return _wfopen(FromUtf8(path).c_str(), FromUtf8(mode).c_str());
}

bool CreatePrivateDirectory(const unsigned short* path) {
    OwnersOnly owners;
    return owners.Get() != nullptr && CreateDirectoryW(ToSystem(path), owners.Get()) != 0;
}

namespace {

// Calls `visit` with all that stands there, but for links and devices. What the system itself needs to look
// through a directory comes from its own heap.
template <class Visitor>
void VisitEntries(const std::string& directory, Visitor visit) {
    constexpr DWORD passedOver = FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DEVICE;
    constexpr int kMostOctets = 3 * MAX_PATH;
    wchar_t pattern[0x8000];
    const int length = MultiByteToWideChar(CP_UTF8, 0, directory.c_str(), static_cast<int>(directory.size()),
                                           pattern, 0x8000 - 3);
    if (length <= 0) return;
    pattern[length] = L'\\';
    pattern[length + 1] = L'*';
    pattern[length + 2] = 0;
    WIN32_FIND_DATAW found{};
    const HANDLE search =
        FindFirstFileExW(pattern, FindExInfoBasic, &found, FindExSearchNameMatch, nullptr, 0);
    if (search == INVALID_HANDLE_VALUE) return;
    const struct Close {
        HANDLE handle;
        ~Close() { FindClose(handle); }
    } closing{search};  // a visitor may throw
    do {
        char name[kMostOctets + 1];
        if ((found.dwFileAttributes & passedOver) != 0 ||
            WideCharToMultiByte(CP_UTF8, 0, found.cFileName, -1, name, sizeof name, nullptr, nullptr) == 0)
            continue;
        visit(found, name);
    } while (FindNextFileW(search, &found) != 0);
}

}  // namespace

void VisitFiles(const std::string& directory, const std::function<void(const FileEntry&)>& visit) {
    VisitEntries(directory, [&](const WIN32_FIND_DATAW& found, const char* name) {
        if ((found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) visit(Describe(found, name));
    });
}

void VisitDirectories(const std::string& directory, const std::function<void(const char*)>& visit) {
    VisitEntries(directory, [&](const WIN32_FIND_DATAW& found, const char* name) {
        const std::string_view view = name;
        const bool isOne = (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
        if (isOne && view != "." && view != "..") visit(name);
    });
}

}  // namespace ZBase::os
