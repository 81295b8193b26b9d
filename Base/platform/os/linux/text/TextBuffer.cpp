#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/linux/text/TextBuffer.h>

#include <algorithm>

namespace ZBase::os {

bool PutText(const std::string& text, unsigned short* buffer, unsigned int capacity) {
    const std::basic_string<unsigned short> wide = FromNative(text.c_str());
    if (wide.size() >= capacity) {
        SetLastCode(kInsufficientBuffer);
        return false;
    }
    std::copy_n(wide.c_str(), wide.size() + 1, buffer);
    return true;
}

unsigned int PutTextCut(const std::string& text, unsigned short* buffer, unsigned int capacity) {
    const std::basic_string<unsigned short> wide = FromNative(text.c_str());
    if (capacity == 0 || wide.size() >= capacity) {
        SetLastCode(kInsufficientBuffer);
        if (capacity == 0) return 0;
        std::copy_n(wide.c_str(), capacity - 1, buffer);
        buffer[capacity - 1] = 0;
        return capacity;
    }
    std::copy_n(wide.c_str(), wide.size() + 1, buffer);
    return static_cast<unsigned int>(wide.size());
}

}  // namespace ZBase::os
