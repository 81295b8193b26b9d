#include <Base/platform/os/linux/processes/ProgramStart.h>

#include <sys/auxv.h>
#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include <Base/platform/os/linux/files/WholeFile.h>

// The address of the number of arguments and the pointers to them, from the loader.
extern "C" [[gnu::weak]] void* __libc_stack_end;

namespace ZBase::os {

namespace {

// The pointers belong to the program, and `getopt` reorders them. The texts stay where they are.
std::vector<std::string> ArgumentsOnTheStack() {
    if (&__libc_stack_end == nullptr || __libc_stack_end == nullptr) return {};
    const auto* const start = static_cast<const std::uintptr_t*>(__libc_stack_end);
    std::vector<const char*> texts(reinterpret_cast<const char* const*>(start + 1),
                                   reinterpret_cast<const char* const*>(start + 1 + *start));
    std::sort(texts.begin(), texts.end());
    std::vector<std::string> arguments;
    for (const char* const text : texts)
        if (text != nullptr) arguments.emplace_back(text);
    return arguments;
}

constexpr std::string_view kMark = " (deleted)";

}  // namespace

std::vector<std::string> ProgramArguments() {
    std::string texts;
    if (!ReadWholeFile("/proc/self/cmdline", texts)) return ArgumentsOnTheStack();
    std::vector<std::string> arguments;
    for (std::size_t start = 0; start < texts.size(); start += arguments.back().size() + 1)
        arguments.emplace_back(texts.c_str() + start);
    return arguments;
}

std::string ProgramPath() {
    char path[PATH_MAX];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
    if (length > 0)
        return WithoutDeletionMark(std::string(path, static_cast<std::size_t>(length)), "/proc/self/exe");
    const char* const started = ProgramAsStarted();
    if (started == nullptr) return {};
    return realpath(started, path) != nullptr ? path : started;
}

const char* ProgramAsStarted() {
    return reinterpret_cast<const char*>(getauxval(AT_EXECFN));
}

std::string WithoutDeletionMark(const std::string& path, const char* file) {
    struct stat status {};
    return WithoutDeletionMark(path, stat(file, &status) == 0 ? status.st_ino : 0);
}

std::string WithoutDeletionMark(const std::string& path, unsigned long inode) {
    if (!path.ends_with(kMark)) return path;
    struct stat named {};
    if (lstat(path.c_str(), &named) == 0 && named.st_ino == inode) return path;
    return path.substr(0, path.size() - kMark.size());
}

}  // namespace ZBase::os
