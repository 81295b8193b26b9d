#include <Base/platform/os/linux/processes/OwnProc.h>
#include <Base/platform/os/linux/processes/SignalsHeldBack.h>
#include <Base/platform/os/linux/processes/ThreadFiles.h>
#include <Base/platform/os/linux/processes/x86_64/SystemCall.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <charconv>
#include <cstdio>

namespace ZBase::os {

namespace {

struct Reading {
    const char* path;
    char* room;
    std::size_t capacity;
    std::size_t size = 0;
    rlimit limit{};
};

// Runs in a process with descriptors of its own, of which one is given up. On its stack lies nothing that a
// sanitizer would surround with marks: the process ends without taking them away.
int ReadAside(void* argument) {
    Reading& reading = *static_cast<Reading*>(argument);
    SystemCall(SYS_getrlimit, RLIMIT_NOFILE, &reading.limit);
    reading.limit.rlim_cur = reading.limit.rlim_max;
    SystemCall(SYS_setrlimit, RLIMIT_NOFILE, &reading.limit);
    SystemCall(SYS_close, 0);
    const long file = SystemCall(SYS_open, reading.path, O_RDONLY | O_CLOEXEC);
    while (file >= 0 && reading.size != reading.capacity) {
        const long count =
            SystemCall(SYS_read, file, reading.room + reading.size, reading.capacity - reading.size);
        if (count <= 0) break;
        reading.size += static_cast<std::size_t>(count);
    }
    SystemCall(SYS_exit_group, 0);
    return 0;
}

// Where no descriptor is left: by a child that shares the memory and gets no signal. Its end is told to
// nobody else. It is another process, so it needs a path without "self".
std::size_t ReadWithoutDescriptor(pid_t thread, const char* name, char* room, std::size_t capacity) {
    if (!HasOwnProc()) return 0;
    constexpr std::size_t kStackSize = 8192;
    alignas(16) char stack[kStackSize];
    char path[64];
    std::snprintf(path, sizeof path, "/proc/%d/task/%d/%s", static_cast<int>(getpid()),
                  static_cast<int>(thread), name);
    Reading reading{path, room, capacity};
    const SignalsHeldBack heldBack;
    const pid_t child = clone(ReadAside, stack + kStackSize, CLONE_VM | CLONE_VFORK, &reading);
    if (child > 0) waitpid(child, nullptr, static_cast<int>(__WCLONE));
    return reading.size;
}

}  // namespace

std::string_view ReadThreadFile(pid_t thread, const char* name, char* room, std::size_t capacity) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/%s", static_cast<int>(thread), name);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0 && errno == EMFILE) {
        const std::size_t size = ReadWithoutDescriptor(thread, name, room, capacity);
        errno = EMFILE;
        return {room, size};
    }
    if (file < 0) return {};
    std::size_t size = 0;
    while (size != capacity) {
        const ssize_t count = read(file, room + size, capacity - size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        size += static_cast<std::size_t>(count);
    }
    close(file);
    return {room, size};
}

std::uint64_t NumberBehind(std::string_view text, std::string_view name, int base) {
    const std::size_t place = text.find(name);
    if (place == std::string_view::npos) return 0;
    const std::string_view digits = text.substr(place + name.size());
    std::uint64_t number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number, base);
    return number;
}

}  // namespace ZBase::os
