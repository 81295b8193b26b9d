#include <Base/platform/os/DebugOutput.h>

#include <Base/platform/os/ErrorStream.h>

#include <fcntl.h>
#include <gnu/libc-version.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <string>
#include <string_view>

#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/text/NativeText.h>

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

/// Caches a test for a moment, since it costs more than a write: a report has a hundred thousand lines.
template <bool (*Look)()>
bool IsSo(bool& isNew) {
    constexpr std::int64_t kMoment = 50'000'000;
    static constinit std::atomic<std::int64_t> seen{
        -1};  // the time in nanoseconds, the result in the lowest bit
    timespec time{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &time);
    const std::int64_t now = std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
    const std::int64_t last = seen.load(std::memory_order_relaxed);
    isNew = last < 0 || now - last >= kMoment;
    if (!isNew) return (last & 1) != 0;
    const bool isSo = Look();
    seen.store((now & ~std::int64_t{1}) | (isSo ? 1 : 0), std::memory_order_relaxed);
    return isSo;
}

bool IsDebuggerAttached() {
    bool isNew = false;
    return IsSo<LookForDebugger>(isNew);
}

// Whether the C library's `syslog` has a reader. A program with a `syslog` of its own gets all texts.
bool LookForLog() {
    ModulePlace function{};
    ModulePlace library{};
    if (!ModulePlace::Find(reinterpret_cast<std::uint64_t>(&syslog), function) ||
        !ModulePlace::Find(reinterpret_cast<std::uint64_t>(&gnu_get_libc_version), library) ||
        function.start != library.start)
        return true;
    const int before = errno;
    const int connection = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (connection < 0) return true;
    sockaddr_un log{AF_UNIX, _PATH_LOG};
    const bool isThere = connect(connection, reinterpret_cast<const sockaddr*>(&log), sizeof log) == 0 ||
                         (errno != ENOENT && errno != ECONNREFUSED);
    close(connection);
    errno = before;
    return isThere;
}

// Without a reader `syslog` tries to connect at each text, which takes ten times as long as all else. So it
// gets a limited number of texts per interval, since the host may print them elsewhere.
bool MayLog() {
    constexpr int kOfAMoment = 256;
    static constinit std::atomic<int> left{kOfAMoment};
    bool isNew = false;
    if (IsSo<LookForLog>(isNew)) return true;
    if (isNew) left.store(kOfAMoment, std::memory_order_relaxed);
    return left.load(std::memory_order_relaxed) > 0 && left.fetch_sub(1, std::memory_order_relaxed) > 0;
}

template <class Ch>
bool IsLineEnd(const Ch* text) {
    while (*text == '\r' || *text == '\n') ++text;
    return *text == 0;
}

// `native` gives the text in octets; it may be costly, and find no memory.
template <class Ch, class Native>
void Write(const Ch* text, Native native) {
    if (text == nullptr) return;
    // A log entry ends its line by itself.
    const bool logs = !IsLineEnd(text) && MayLog();
    const bool debugs = IsDebuggerAttached();
    if (!logs && !debugs) return;
    const auto octets = native(text);
    const std::string_view view = octets;
    if (logs) syslog(LOG_USER | LOG_DEBUG, "%s", view.data());
    if (debugs) WriteErrorText(view);
}

}  // namespace

void WriteDebugText(const char* text) {
    Write(text, [](const char* octets) { return octets; });
}

void WriteDebugText(const unsigned short* text) {
    try {
        Write(text, ToNative);
    } catch (const std::bad_alloc&) {  // who listens can do without
    }
}

}  // namespace ZBase::os
