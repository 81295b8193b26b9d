#pragma once

#include <windows.h>

#include <string_view>
#include <utility>

namespace ZLiteXML {

/// An open file, closed at the end. A code of the system, or 0, from each operation.
class Handle {
public:
    Handle() = default;
    explicit Handle(HANDLE handle) : mHandle(handle) {}
    Handle(Handle&& other) noexcept : mHandle(std::exchange(other.mHandle, INVALID_HANDLE_VALUE)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(mHandle, other.mHandle);
        return *this;
    }
    ~Handle() { Close(); }

    bool IsOpen() const { return mHandle != INVALID_HANDLE_VALUE; }
    HANDLE Get() const { return mHandle; }
    void Close();

    DWORD WriteAll(std::string_view bytes) const;

    /// Brings what was written to the disk.
    DWORD Flush() const;

    /// All of this file to the place where another stands.
    DWORD CopyAllTo(const Handle& to) const;

    DWORD SizeTo(LARGE_INTEGER& size) const;
    DWORD CutTo(LARGE_INTEGER size) const;
    DWORD GoTo(LARGE_INTEGER place) const;

private:
    HANDLE mHandle = INVALID_HANDLE_VALUE;
};

}  // namespace ZLiteXML
