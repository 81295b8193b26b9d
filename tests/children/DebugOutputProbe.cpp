// DebugOutputProbe [NUMBER]: sends texts, or this many, to the debug output, and prints those that arrive at
// the system's log.

#include <Base/ZBase.h>

#include <syslog.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace {

void Print(int priority, const char* form, std::va_list arguments) {
    std::printf("%d [", priority);
    std::vprintf(form, arguments);
    std::printf("]\n");
}

}  // namespace

extern "C" void syslog(int priority, const char* form, ...) {
    std::va_list arguments;
    va_start(arguments, form);
    Print(priority, form, arguments);
    va_end(arguments);
}

// What hardened code calls instead.
extern "C" void __syslog_chk(int priority, int, const char* form, ...) {
    std::va_list arguments;
    va_start(arguments, form);
    Print(priority, form, arguments);
    va_end(arguments);
}

int main(int argc, char** argv) {
    using namespace ZBase;
    if (argc == 2) {
        for (int i = 0; i != std::atoi(argv[1]); ++i) OutputDebugString("one of many");
        return 0;
    }
    OutputDebugString("plain 100%s %n");
    OutputDebugString(static_cast<const char*>(nullptr));
    OutputDebugString(static_cast<const unsigned short*>(nullptr));
    OutputDebugString("");
    OutputDebugString("\r\n\n");
    OutputDebugString("wide \u00E9"_w);
}
