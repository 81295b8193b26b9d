#include "Handle.h"

#include <algorithm>

namespace ZLiteXML {

namespace {

DWORD CodeOf(BOOL succeeded) {
    return succeeded != FALSE ? ERROR_SUCCESS : GetLastError();
}

}  // namespace

void Handle::Close() {
    if (IsOpen()) CloseHandle(std::exchange(mHandle, INVALID_HANDLE_VALUE));
}

DWORD Handle::WriteAll(std::string_view bytes) const {
    constexpr std::size_t most = 1 << 24;
    while (!bytes.empty()) {
        DWORD count = 0;
        if (WriteFile(mHandle, bytes.data(), static_cast<DWORD>(std::min(bytes.size(), most)), &count,
                      nullptr) == FALSE)
            return GetLastError();
        if (count == 0) return ERROR_WRITE_FAULT;
        bytes.remove_prefix(count);
    }
    return ERROR_SUCCESS;
}

// What has no disk behind it takes no such call.
DWORD Handle::Flush() const {
    const DWORD code = CodeOf(FlushFileBuffers(mHandle));
    return code == ERROR_INVALID_FUNCTION || code == ERROR_INVALID_HANDLE ? ERROR_SUCCESS : code;
}

DWORD Handle::CopyAllTo(const Handle& to) const {
    char piece[16384];
    if (const DWORD code = GoTo({}); code != ERROR_SUCCESS) return code;
    for (;;) {
        DWORD count = 0;
        if (ReadFile(mHandle, piece, sizeof piece, &count, nullptr) == FALSE) return GetLastError();
        if (count == 0) return ERROR_SUCCESS;
        if (const DWORD code = to.WriteAll({piece, count}); code != ERROR_SUCCESS) return code;
    }
}

DWORD Handle::SizeTo(LARGE_INTEGER& size) const {
    return CodeOf(GetFileSizeEx(mHandle, &size));
}

DWORD Handle::GoTo(LARGE_INTEGER place) const {
    return CodeOf(SetFilePointerEx(mHandle, place, nullptr, FILE_BEGIN));
}

DWORD Handle::CutTo(LARGE_INTEGER size) const {
    const DWORD code = GoTo(size);
    return code != ERROR_SUCCESS ? code : CodeOf(SetEndOfFile(mHandle));
}

}  // namespace ZLiteXML
