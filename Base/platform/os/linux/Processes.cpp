#include <Base/platform/os/Processes.h>
#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/Threads.h>
#include <Base/platform/os/linux/ErrorCodes.h>
#include <Base/platform/os/linux/NativeText.h>
#include <Base/platform/os/linux/ProcessState.h>
#include <Base/platform/os/linux/ProgramStart.h>
#include <Base/platform/os/linux/TextBuffer.h>
#include <Base/platform/os/linux/WholeFile.h>

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

// A process to be queried is only its id, which costs nothing to keep. One to be waited for is a descriptor,
// or its id where the system gives none. Never null as a pointer.
enum class EHandle : std::uintptr_t { Descriptor = 1, Id = 2 };

Process FromNumber(int number, EHandle kind) {
    return reinterpret_cast<Process>(std::uintptr_t{static_cast<unsigned int>(number)} << 2 |
                                     static_cast<std::uintptr_t>(kind));
}

int ToNumber(Process process) {
    return static_cast<int>(reinterpret_cast<std::uintptr_t>(process) >> 2);
}

bool IsDescriptor(Process process) {
    return (reinterpret_cast<std::uintptr_t>(process) & 3) ==
           static_cast<std::uintptr_t>(EHandle::Descriptor);
}

// Nobody tells when it ends, so it is looked at again and again.
EWaitResult WaitById(int id, unsigned int milliseconds) {
    constexpr unsigned int kPause = 10;
    for (; IsRunning(id); milliseconds -= kPause) {
        if (milliseconds < kPause) return EWaitResult::Timeout;
        SleepMilliseconds(kPause);
    }
    return EWaitResult::Ended;
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
    const int number = static_cast<int>(id);
    if (access == EProcessAccess::Query) return FromNumber(number, EHandle::Id);
    const long descriptor = syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0u);
    if (descriptor >= 0) return FromNumber(static_cast<int>(descriptor), EHandle::Descriptor);
    SetLastCodeFromErrno();
    // There may be no descriptor left, or a sandbox that gives none.
    const bool isNoProcess = errno == ESRCH || errno == EINVAL;
    return isNoProcess || !IsRunning(number) ? nullptr : FromNumber(number, EHandle::Id);
}

void CloseProcess(Process process, EProcessAccess) {
    if (IsDescriptor(process)) close(ToNumber(process));
}

EWaitResult WaitForProcess(Process process, unsigned int milliseconds) {
    if (process == nullptr) {
        SetLastCode(kInvalidHandle);
        return EWaitResult::Failed;
    }
    if (!IsDescriptor(process)) return WaitById(ToNumber(process), milliseconds);
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
    const int id = ToNumber(process);
    const std::string link = "/proc/" + std::to_string(static_cast<unsigned int>(id)) + "/exe";
    char target[PATH_MAX];
    const ssize_t length = readlink(link.c_str(), target, sizeof target);
    if (length >= 0) {
        const std::string program(target, static_cast<std::size_t>(length));
        return PutText(WithoutDeletionMark(program, link.c_str()), path, capacity);
    }
    SetLastCodeFromErrno();
    const std::string own = id == getpid() ? ProgramPath() : std::string();
    return !own.empty() && PutText(own, path, capacity);
}

unsigned short PathSeparator() {
    return '/';
}

std::basic_string<unsigned short> CommandLine() {
    std::string line;
    for (const std::string& argument : ProgramArguments()) {
        if (line.empty()) {
            AppendProgram(line, argument);
        } else {
            AppendArgument(line, argument);
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
