#include <Base/platform/os/DebugOutput.h>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <Base/platform/os/linux/NativeText.h>

namespace ZBase::os {

namespace {

bool IsDebuggerAttached() {
    char text[4096];
    const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    if (file < 0) return false;
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    text[length > 0 ? length : 0] = 0;
    constexpr char kTracer[] = "\nTracerPid:";
    const char* const tracer = std::strstr(text, kTracer);
    return tracer != nullptr && std::atol(tracer + std::strlen(kTracer)) != 0;
}

}  // namespace

void WriteDebugText(const char* text) {
    if (text == nullptr) return;
    // An entry of the log ends its line by itself.
    if (text[std::strspn(text, "\r\n")] != 0) syslog(LOG_USER | LOG_DEBUG, "%s", text);
    if (!IsDebuggerAttached()) return;
    for (std::size_t left = std::strlen(text); left != 0;) {
        const ssize_t written = write(STDERR_FILENO, text, left);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) break;
        text += written;
        left -= static_cast<std::size_t>(written);
    }
}

void WriteDebugText(const unsigned short* text) {
    if (text != nullptr) WriteDebugText(ToNative(text).c_str());
}

}  // namespace ZBase::os
