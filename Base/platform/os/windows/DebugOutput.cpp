#include <Base/platform/os/DebugOutput.h>
#include <Base/platform/os/windows/WideText.h>

#include <windows.h>

namespace ZBase::os {

void WriteDebugText(const unsigned short* text) {
    if (text != nullptr) OutputDebugStringW(ToSystem(text));
}

// The system would take narrow text for that of the code page of its own programs.
void WriteDebugText(const char* text) {
    if (text != nullptr) OutputDebugStringW(FromUtf8(text).c_str());
}

}  // namespace ZBase::os
