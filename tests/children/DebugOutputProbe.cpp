// Sends texts to the debug output, and prints what of them arrives at the system's log.

#include <Base/ZBase.h>

#include <syslog.h>
#include <cstdarg>
#include <cstdio>

extern "C" void syslog(int priority, const char* form, ...) {
    std::va_list arguments;
    va_start(arguments, form);
    std::printf("%d [", priority);
    std::vprintf(form, arguments);
    std::printf("]\n");
    va_end(arguments);
}

int main() {
    using namespace ZBase;
    OutputDebugString("plain 100%s %n");
    OutputDebugString(static_cast<const char*>(nullptr));
    OutputDebugString(static_cast<const unsigned short*>(nullptr));
    OutputDebugString("");
    OutputDebugString("\r\n\n");
    OutputDebugString("wide \u00E9"_w);
}
