#include <Base/platform/os/Processes.h>
#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/linux/ErrorCodes.h>
#include <Base/platform/os/linux/NativeText.h>
#include <Base/platform/os/linux/TextBuffer.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

namespace ZBase::os {

namespace {

// A process to be queried is only its id, which costs nothing to keep; one to be waited for is a descriptor.
// Both are at least 1 as a pointer.
Process FromNumber(unsigned int number) {
    return reinterpret_cast<Process>(static_cast<std::uintptr_t>(number) + 1);
}

int ToNumber(Process process) {
    return static_cast<int>(reinterpret_cast<std::uintptr_t>(process) - 1);
}

bool ReadWholeFile(const char* path, std::string& content) {
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    ssize_t count = -1;
    if (file >= 0) {
        char piece[4096];
        while ((count = read(file, piece, sizeof piece)) > 0 || (count < 0 && errno == EINTR)) {
            if (count > 0) content.append(piece, static_cast<std::size_t>(count));
        }
    }
    if (count < 0) SetLastCodeFromErrno();
    if (file >= 0) close(file);
    return count == 0;
}

bool NeedsQuotes(std::string_view argument) {
    return argument.empty() || argument.find_first_of(" \t\n\v\"") != std::string_view::npos;
}

// A program's name is read up to the closing quote; nothing in it is escaped.
void AppendProgram(std::string& line, std::string_view name) {
    const bool quoted = NeedsQuotes(name);
    if (quoted) line += '"';
    line += name;
    if (quoted) line += '"';
}

// Backslashes stand for themselves, save in front of a quote: there they are doubled, and a quote that is
// part of the argument has one more.
void AppendArgument(std::string& line, std::string_view argument) {
    line += ' ';
    if (!NeedsQuotes(argument)) {
        line += argument;
        return;
    }
    line += '"';
    std::size_t backslashes = 0;
    for (const char c : argument) {
        if (c == '"') line.append(backslashes + 1, '\\');
        backslashes = c == '\\' ? backslashes + 1 : 0;
        line += c;
    }
    line.append(backslashes, '\\');
    line += '"';
}

// The KiB behind `label` at the start of a line; 0 if there is no such line.
std::uint64_t KibOf(const std::string& status, const char* label) {
    const std::size_t at = status.find(label);
    return at == std::string::npos ? 0 : std::strtoull(status.c_str() + at + std::strlen(label), nullptr, 10);
}

}  // namespace

Process OpenProcess(unsigned int id, EProcessAccess access) {
    if (access == EProcessAccess::Query) return FromNumber(id);
    const long descriptor = syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0u);
    if (descriptor < 0) {
        SetLastCodeFromErrno();
        return nullptr;
    }
    return FromNumber(static_cast<unsigned int>(descriptor));
}

void CloseProcess(Process process, EProcessAccess access) {
    if (access == EProcessAccess::Wait) close(ToNumber(process));
}

EWaitResult WaitForProcess(Process process, unsigned int milliseconds) {
    if (process == nullptr) {
        SetLastCode(kInvalidHandle);
        return EWaitResult::Failed;
    }
    pollfd ended{ToNumber(process), POLLIN, 0};
    const int timeout = static_cast<int>(std::min<unsigned int>(milliseconds, INT_MAX));
    int count = 0;
    do count = poll(&ended, 1, timeout);
    while (count < 0 && errno == EINTR);
    if (count == 0) return EWaitResult::Timeout;
    if (count > 0 && (ended.revents & POLLIN) != 0) return EWaitResult::Ended;
    SetLastCodeFromErrno();
    return EWaitResult::Failed;
}

bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity) {
    const std::string link = "/proc/" + std::to_string(static_cast<unsigned int>(ToNumber(process))) + "/exe";
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    if (length < 0) {
        SetLastCodeFromErrno();
        return false;
    }
    return PutText(std::string(target, static_cast<std::size_t>(length)), path, capacity);
}

unsigned short PathSeparator() {
    return '/';
}

std::basic_string<unsigned short> CommandLine() {
    std::string arguments;
    std::string line;
    if (ReadWholeFile("/proc/self/cmdline", arguments)) {
        for (std::size_t start = 0; start < arguments.size();) {
            const std::string_view argument = arguments.c_str() + start;
            if (start == 0) {
                AppendProgram(line, argument);
            } else {
                AppendArgument(line, argument);
            }
            start += argument.size() + 1;
        }
    }
    return FromNative(line.c_str());
}

EMemoryCounters OpenMemoryCounters() {
    return EMemoryCounters::Ready;
}

// What is private and backed, in memory or in swap. Address space that was only reserved, such as the stacks
// of threads, does not count, and pages made read-only still do.
bool GetCommittedBytes(std::uint64_t& bytes) {
    std::string status;
    if (!ReadWholeFile("/proc/self/status", status)) return false;
    bytes = (KibOf(status, "\nRssAnon:") + KibOf(status, "\nVmSwap:")) * 1024;
    return true;
}

}  // namespace ZBase::os
