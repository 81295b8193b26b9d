#include <Base/platform/os/windows/files/NativeFile.h>

#include <windows.h>

#include <winternl.h>

#include <cstddef>
#include <cwchar>

namespace ZBase::os {

namespace {

NativeName sName;

constexpr ULONG kShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
constexpr ULONG kWaits = FILE_SYNCHRONOUS_IO_NONALERT;

// The system's own form of a path; of a directory without the separator at its end.
bool MakeName(const wchar_t* path, wchar_t* room, UNICODE_STRING& name) {
    const bool isNetwork = path[0] == L'\\' && path[1] == L'\\' && path[2] != L'?' && path[2] != L'.';
    const bool isNative = path[0] == L'\\' && path[1] == L'\\' && !isNetwork;
    const wchar_t* const prefix = isNetwork ? L"\\??\\UNC" : L"\\??\\";
    const wchar_t* const rest = isNetwork ? path + 1 : isNative ? path + 4 : path;
    std::size_t length = std::wcslen(prefix);
    std::wmemcpy(room, prefix, length);
    const std::size_t size = std::wcslen(rest);
    if (length + size > NativeName::kLongest) return false;
    std::wmemcpy(room + length, rest, size);
    length += size;
    if (room[length - 1] == L'\\' && room[length - 2] != L':') --length;
    name = {static_cast<USHORT>(2 * length), static_cast<USHORT>(2 * length), room};
    return true;
}

HANDLE Open(const wchar_t* path, ACCESS_MASK access, ULONG creation, ULONG options,
            SECURITY_DESCRIPTOR* owner, NativeName& room = sName) {
    UNICODE_STRING name{};
    if (!MakeName(path, room.units, name)) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return INVALID_HANDLE_VALUE;
    }
    OBJECT_ATTRIBUTES attributes{};
    attributes.Length = sizeof attributes;
    attributes.ObjectName = &name;
    attributes.Attributes = OBJ_CASE_INSENSITIVE;
    attributes.SecurityDescriptor = owner;
    IO_STATUS_BLOCK status{};
    HANDLE file = nullptr;
    const NTSTATUS result =
        NtCreateFile(&file, access | SYNCHRONIZE, &attributes, &status, nullptr, FILE_ATTRIBUTE_NORMAL,
                     kShared, creation, options | kWaits, nullptr, 0);
    if (result >= 0) return file;
    SetLastError(RtlNtStatusToDosError(result));
    return INVALID_HANDLE_VALUE;
}

bool CloseIfOpen(HANDLE file) {
    return file != INVALID_HANDLE_VALUE && CloseHandle(file) != 0;
}

}  // namespace

HANDLE OpenNativeFile(const wchar_t* path, DWORD creation, SECURITY_DESCRIPTOR* owner) {
    return Open(path, FILE_GENERIC_READ | FILE_GENERIC_WRITE,
                creation == CREATE_NEW ? FILE_CREATE : FILE_OPEN,
                FILE_NON_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT, owner);
}

HANDLE MakeNativeFile(const wchar_t* path, NativeName& room) {
    return Open(path, FILE_GENERIC_WRITE, FILE_OVERWRITE_IF, FILE_NON_DIRECTORY_FILE, nullptr, room);
}

bool MakeNativeDirectory(const wchar_t* path, SECURITY_DESCRIPTOR* owner) {
    return CloseIfOpen(Open(path, FILE_LIST_DIRECTORY, FILE_OPEN_IF, FILE_DIRECTORY_FILE, owner));
}

EPlace LookAtNativePlace(const wchar_t* path) {
    if (CloseIfOpen(Open(path, FILE_READ_ATTRIBUTES, FILE_OPEN, FILE_DIRECTORY_FILE, nullptr)))
        return EPlace::eDirectory;
    return CloseIfOpen(Open(path, FILE_READ_ATTRIBUTES, FILE_OPEN, 0, nullptr)) ? EPlace::eOther
                                                                                : EPlace::eNothing;
}

bool DeleteNativeFile(const wchar_t* path) {
    constexpr ULONG options = FILE_DELETE_ON_CLOSE | FILE_NON_DIRECTORY_FILE | FILE_OPEN_REPARSE_POINT;
    return CloseIfOpen(Open(path, DELETE, FILE_OPEN, options, nullptr));
}

}  // namespace ZBase::os
