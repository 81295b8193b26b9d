#include <Base/platform/os/ErrorStream.h>

#include <windows.h>

#include <algorithm>

namespace ZBase::os {

void WriteErrorText(std::string_view text) {
    constexpr std::size_t most = 0x10000;
    const HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
    while (!text.empty()) {
        DWORD written = 0;
        const auto size = static_cast<DWORD>(std::min(text.size(), most));
        if (WriteFile(stream, text.data(), size, &written, nullptr) == 0 || written == 0) return;
        text.remove_prefix(written);
    }
}

}  // namespace ZBase::os
