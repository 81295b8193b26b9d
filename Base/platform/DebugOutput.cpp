#include <Base/frame/WideLiteral.h>
#include <Base/platform/DebugOutput.h>
#include <Base/platform/os/DebugOutput.h>

namespace ZBase {

void OutputDebugString(const unsigned short* text) {
    os::WriteDebugText(text);
    os::WriteDebugText("\r\n"_w);
}

void OutputDebugString(const char* text) {
    os::WriteDebugText(text);
    os::WriteDebugText("\r\n");
}

}  // namespace ZBase
