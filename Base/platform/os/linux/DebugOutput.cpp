#include <Base/platform/os/DebugOutput.h>

#include <Base/platform/os/ErrorStream.h>

#include <fcntl.h>
#include <syslog.h>
#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <Base/platform/os/linux/NativeText.h>

namespace ZBase::os {

namespace {

bool LookForDebugger() {
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

// To look costs more than to write, so what was seen holds for a moment. A report has a hundred thousand
// lines.
bool IsDebuggerAttached() {
    constexpr std::int64_t kMoment = 50'000'000;
    static constinit std::atomic<std::int64_t> seen{
        -1};  // the time in nanoseconds, the lowest bit the answer
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    const std::int64_t now = std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    const std::int64_t last = seen.load(std::memory_order_relaxed);
    if (last >= 0 && now - last < kMoment) return (last & 1) != 0;
    const bool isAttached = LookForDebugger();
    seen.store((now & ~std::int64_t{1}) | (isAttached ? 1 : 0), std::memory_order_relaxed);
    return isAttached;
}

}  // namespace

void WriteDebugText(const char* text) {
    if (text == nullptr) return;
    // An entry of the log ends its line by itself.
    if (text[std::strspn(text, "\r\n")] != 0) syslog(LOG_USER | LOG_DEBUG, "%s", text);
    if (IsDebuggerAttached()) WriteErrorText(text);
}

void WriteDebugText(const unsigned short* text) {
    if (text != nullptr) WriteDebugText(ToNative(text).c_str());
}

}  // namespace ZBase::os
