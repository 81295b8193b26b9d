#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

#include <algorithm>
#include <stdexcept>

namespace ZBase::os {

namespace {

// The system counts in `int`.
int CheckedLength(std::size_t length) {
    constexpr std::size_t most = 0x3FFFFFFF;
    if (length > most) throw std::length_error("a text of the system");
    return static_cast<int>(length);
}

}  // namespace

std::wstring FromUtf8(std::string_view text) {
    if (text.empty()) return {};
    const int length = CheckedLength(text.size());
    const int size = MultiByteToWideChar(CP_UTF8, 0, text.data(), length, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(size), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), length, wide.data(), size);
    return wide;
}

std::string ToUtf8(std::wstring_view text) {
    if (text.empty()) return {};
    const int length = CheckedLength(text.size());
    const int size = WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
    std::string narrow(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text.data(), length, narrow.data(), size, nullptr, nullptr);
    return narrow;
}

bool PutText(std::wstring_view text, unsigned short* buffer, unsigned int capacity) {
    if (text.size() >= capacity) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return false;
    }
    *std::copy(text.begin(), text.end(), buffer) = 0;
    return true;
}

}  // namespace ZBase::os
