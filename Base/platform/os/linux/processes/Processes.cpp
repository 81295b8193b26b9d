#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/processes/OwnProc.h>
#include <Base/platform/os/linux/processes/ProcessState.h>
#include <Base/platform/os/linux/processes/ProgramStart.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/linux/text/TextBuffer.h>
#include <Base/platform/os/processes/Processes.h>
#include <Base/platform/os/processes/Threads.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace ZBase::os {

namespace {

// A process is its id and, if it is to be waited for and the system gives one, a descriptor: 31 bits each,
// and one bit so that it is never null as a pointer.
constexpr unsigned int kNumberBits = 31;
constexpr std::uintptr_t kNoDescriptor = (std::uintptr_t{1} << kNumberBits) - 1;

Process ToProcess(unsigned int id, std::uintptr_t descriptor) {
    return reinterpret_cast<Process>(std::uintptr_t{id} << (kNumberBits + 1) | descriptor << 1 | 1);
}

int IdOf(Process process) {
    return static_cast<int>(reinterpret_cast<std::uintptr_t>(process) >> (kNumberBits + 1));
}

int DescriptorOf(Process process) {
    const std::uintptr_t descriptor = reinterpret_cast<std::uintptr_t>(process) >> 1 & kNoDescriptor;
    return descriptor == kNoDescriptor ? -1 : static_cast<int>(descriptor);
}

// There is no notification of its end, so it is polled.
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

// A program's name is read up to the closing quote; there is no escaping.
void AppendProgram(std::string& line, std::string_view name) {
    const bool quoted = NeedsQuotes(name);
    if (quoted) line += '"';
    line += name;
    if (quoted) line += '"';
}

// Backslashes are literal, except before a quote: there they are doubled, and a quote in the argument gets
// one more.
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

// Sums the KiB in the lines with these labels, while reading and without the heap.
class MemoryLines {
public:
    void Take(char c) {
        if (c != '\n') {
            if (mLength < sizeof mLine - 1) mLine[mLength++] = c;
            return;
        }
        mLine[mLength] = 0;
        mLength = 0;
        for (const std::string_view label : {"RssAnon:", "VmSwap:"}) {
            if (std::string_view(mLine).starts_with(label))
                mKib += std::strtoull(mLine + label.size(), nullptr, 10);
        }
    }
    std::uint64_t Kib() const { return mKib; }

private:
    char mLine[64];  // the rest of a line is skipped
    std::size_t mLength = 0;
    std::uint64_t mKib = 0;
};

}  // namespace

Process OpenProcess(unsigned int id, EProcessAccess access) {
    if (access == EProcessAccess::Query) return ToProcess(id, kNoDescriptor);
    const long descriptor = syscall(SYS_pidfd_open, static_cast<pid_t>(id), 0u);
    if (descriptor >= 0) return ToProcess(id, static_cast<std::uintptr_t>(descriptor));
    SetLastCodeFromErrno();
    // There may be no descriptor left, or a sandbox that gives none.
    const bool isNoProcess = errno == ESRCH || errno == EINVAL;
    return isNoProcess || !IsRunning(static_cast<int>(id)) ? nullptr : ToProcess(id, kNoDescriptor);
}

void CloseProcess(Process process, EProcessAccess) {
    if (DescriptorOf(process) >= 0) close(DescriptorOf(process));
}

EWaitResult WaitForProcess(Process process, unsigned int milliseconds) {
    if (process == nullptr) {
        SetLastCode(kInvalidHandle);
        return EWaitResult::Failed;
    }
    if (DescriptorOf(process) < 0) return WaitById(IdOf(process), milliseconds);
    pollfd ended{DescriptorOf(process), POLLIN, 0};
    const int timeout = static_cast<int>(std::min<unsigned int>(milliseconds, INT_MAX));
    int count = 0;
    do count = poll(&ended, 1, timeout);
    while (count < 0 && errno == EINTR);
    if (count == 0) return EWaitResult::Timeout;
    if (count > 0 && (ended.revents & POLLIN) != 0) return EWaitResult::Ended;
    return WaitById(IdOf(process), milliseconds);  // the system refuses the wait
}

bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity) {
    const int id = IdOf(process);
    const std::string link = "/proc/" + std::to_string(static_cast<unsigned int>(id)) + "/exe";
    char target[PATH_MAX];
    ssize_t length = -1;
    errno = ENOENT;
    if (HasOwnProc()) length = readlink(link.c_str(), target, sizeof target);
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

// Private and backed memory, resident or in swap. Reserved address space, such as the stacks of threads, does
// not count, and pages made read-only still do.
bool GetCommittedBytes(std::uint64_t& bytes) {
    const int file = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
    ssize_t count = -1;
    MemoryLines lines;
    if (file >= 0) {
        char piece[1024];
        while ((count = read(file, piece, sizeof piece)) > 0 || (count < 0 && errno == EINTR))
            std::for_each(piece, piece + std::max<ssize_t>(count, 0), [&lines](char c) { lines.Take(c); });
    }
    if (count < 0) SetLastCodeFromErrno();
    if (file >= 0) close(file);
    bytes = lines.Kib() * 1024;
    return count == 0;
}

}  // namespace ZBase::os
