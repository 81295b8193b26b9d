#include <Base/platform/os/linux/processes/ThreadFiles.h>

#include <fcntl.h>
#include <unistd.h>
#include <cerrno>
#include <charconv>
#include <cstdio>

namespace ZBase::os {

std::string_view ReadThreadFile(pid_t thread, const char* name, char* room, std::size_t capacity) {
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/%s", static_cast<int>(thread), name);
    const int file = open(path, O_RDONLY | O_CLOEXEC);
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
