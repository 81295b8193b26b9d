// The sender is started by `clone` without a copy of the memory and without the handlers that `fork` runs, on
// stacks that were set aside: nothing here takes a lock, so it works while the heap's lock is held by the
// thread that crashed. A process in between lives as long as the sender and collects it, so that a server
// that waits for its children never sees it, not even one to which orphans are given. That process sends no
// signal when it ends. This one does not wait for either without a bound.
//
// What runs in the new processes shares the memory, and the thread-local variables, of the thread that
// started them and goes on: it makes system calls that leave `errno` alone.

#include <Base/platform/os/Environment.h>
#include <Base/platform/os/ReportSender.h>
#include <Base/platform/os/linux/WipedMemory.h>
#include <Base/platform/os/linux/x86_64/SystemCall.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

namespace ZBase::os {

namespace {

constexpr char kSender[] = "/zbase-crash-sender";
constexpr std::size_t kStackSize = 32768;

// What directs an upload, or is needed to load the sender.
constexpr const char* kVariables[] = {"http_proxy",    "https_proxy",  "HTTPS_PROXY",     "all_proxy",
                                      "ALL_PROXY",     "no_proxy",     "NO_PROXY",        "CURL_CA_BUNDLE",
                                      "SSL_CERT_FILE", "SSL_CERT_DIR", "LD_LIBRARY_PATH", "PATH",
                                      "HOME",          "ASAN_OPTIONS", "UBSAN_OPTIONS"};

constexpr std::size_t kReports =
    3;  // at a time: of a crash, of a dump on demand, of the crash of a child of vfork
constexpr unsigned int kEndMilliseconds = 2000;  // for the end of a sender that has answered

// What is the same for all reports.
struct Program {
    char path[PATH_MAX];
    char* arguments[2];
    char* environment[std::size(kVariables) + 1];
    char text[1];  // the environment
};

// What is used by one report. A child of fork finds it free.
struct Launch {
    std::atomic<bool> isTaken;
    const Program* program;
    int connection;
    unsigned int seconds;
    alignas(16) char outerStack[kStackSize];
    alignas(16) char innerStack[kStackSize];
};

const Program* spProgram = nullptr;
Launch* spLaunches = nullptr;

std::string SenderPath() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&PrepareReportSender), &library) == 0) return "";
    char* resolved = realpath(library.dli_fname, nullptr);
    if (resolved == nullptr) return "";
    std::string path = resolved;
    std::free(resolved);
    return path.substr(0, path.rfind('/')) + kSender;
}

// As the kernel has it.
struct KernelAction {
    void (*handler)(int);
    unsigned long flags;
    void (*restorer)();
    unsigned long mask;
};

void ResetSignals() {
    const KernelAction standard{};
    const unsigned long none = 0;
    for (int signal = 1; signal < NSIG; ++signal)
        SystemCall(SYS_rt_sigaction, signal, &standard, nullptr, sizeof none);
    SystemCall(SYS_rt_sigprocmask, SIG_SETMASK, &none, nullptr, sizeof none);
}

// The process that crashed may have been at its own ones.
void ResetLimits(unsigned int seconds) {
    const auto raise = [](int resource, rlim_t value) {
        rlimit limit{};
        SystemCall(SYS_prlimit64, 0, resource, nullptr, &limit);
        const rlimit wanted{value, std::max(value, limit.rlim_max)};
        if (SystemCall(SYS_prlimit64, 0, resource, &wanted, nullptr) == 0) return;
        limit.rlim_cur = std::min(value, limit.rlim_max);
        SystemCall(SYS_prlimit64, 0, resource, &limit, nullptr);
    };
    for (const int resource : {RLIMIT_AS, RLIMIT_DATA, RLIMIT_FSIZE}) raise(resource, RLIM_INFINITY);
    raise(RLIMIT_STACK, 8 << 20);
    raise(RLIMIT_NOFILE, 256);
    raise(RLIMIT_CPU, seconds);
    raise(RLIMIT_CORE, 0);
}

// A program with the rights of another user than its caller finds its libraries in the system's places only.
// Its environment has nothing of the caller's.
void TakeOneIdentity() {
    const long user = SystemCall(SYS_geteuid);
    const long group = SystemCall(SYS_getegid);
    SystemCall(SYS_setresgid, group, group, group);
    SystemCall(SYS_setresuid, user, user, user);
}

void CloseFrom(unsigned int first) {
    if (SystemCall(SYS_close_range, first, ~0u, 0u) == 0) return;
    for (unsigned int descriptor = first; descriptor != 65536; ++descriptor)
        SystemCall(SYS_close, descriptor);
}

// Runs in the new process.
int RunSender(void* launch) {
    const auto* const self = static_cast<const Launch*>(launch);
    ResetSignals();
    ResetLimits(self->seconds);
    TakeOneIdentity();
    SystemCall(SYS_dup2, self->connection, STDIN_FILENO);
    const long sink = SystemCall(SYS_open, "/dev/null", O_RDWR);
    SystemCall(SYS_dup2, sink, STDOUT_FILENO);
    SystemCall(SYS_dup2, sink, STDERR_FILENO);
    CloseFrom(3);
    SystemCall(SYS_alarm, self->seconds);
    SystemCall(SYS_execve, self->program->path, self->program->arguments, self->program->environment);
    SystemCall(SYS_exit_group, 127);
    return 127;
}

// Its end is that of the thread which started it, at the latest, so that no memory outlives the process for
// long.
int RunBetween(void* launch) {
    auto* const self = static_cast<Launch*>(launch);
    SystemCall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
    SystemCall(SYS_setsid);
    const int sender =
        clone(RunSender, self->innerStack + kStackSize, CLONE_VM | CLONE_VFORK | SIGCHLD, self);
    CloseFrom(0);  // what the server closes is to be closed
    if (sender > 0) SystemCall(SYS_wait4, sender, nullptr, __WALL, nullptr);
    SystemCall(SYS_exit_group, 0);
    return 0;
}

Launch* TakeLaunch() {
    for (Launch* launch = spLaunches; launch != spLaunches + kReports; ++launch) {
        if (!launch->isTaken.exchange(true)) return launch;
    }
    return nullptr;
}

pid_t Start(Launch* launch, int connection, unsigned int seconds) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    launch->program = spProgram;
    launch->connection = connection;
    launch->seconds = seconds;
    const pid_t between = clone(RunBetween, launch->outerStack + kStackSize, CLONE_VM, launch);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    return between;
}

// Waits for the end of the process in between; false if it goes on all the same.
bool Collect(pid_t between) {
    for (unsigned int waited = 0; waited != kEndMilliseconds; ++waited) {
        const pid_t collected = waitpid(between, nullptr, __WALL | WNOHANG);
        if (collected == between || (collected < 0 && errno != EINTR)) return true;
        const timespec millisecond{0, 1'000'000};
        nanosleep(&millisecond, nullptr);
    }
    return false;
}

/// The time until which all has to be done.
class Deadline {
public:
    explicit Deadline(unsigned int seconds) { mEnd = Now() + 1000LL * seconds; }

    // Waits until the connection can do `events`; false when the time is over.
    bool Wait(int connection, short events) const {
        for (;;) {
            const long long left = mEnd - Now();
            if (left <= 0) return false;
            pollfd entry{connection, events, 0};
            const int ready = poll(&entry, 1, static_cast<int>(left));
            if (ready > 0) return true;
            if (ready < 0 && errno != EINTR) return false;
        }
    }

private:
    static long long Now() {
        timespec time{};
        clock_gettime(CLOCK_MONOTONIC, &time);
        return 1000LL * time.tv_sec + time.tv_nsec / 1000000;
    }

    long long mEnd;  // milliseconds
};

bool Hand(int connection, ReportPiece piece, const Deadline& deadline) {
    while (piece.length != 0) {
        if (!deadline.Wait(connection, POLLOUT)) return false;
        const ssize_t sent = send(connection, piece.start, piece.length, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0 && errno != EINTR && errno != EAGAIN) return false;
        if (sent <= 0) continue;
        piece.start += sent;
        piece.length -= static_cast<std::size_t>(sent);
    }
    return true;
}

char Converse(int connection, const ReportPiece* pieces, std::size_t count, const Deadline& deadline) {
    for (std::size_t i = 0; i != count; ++i) {
        if (!Hand(connection, pieces[i], deadline)) return 0;
    }
    shutdown(connection, SHUT_WR);
    char answer = 0;
    while (deadline.Wait(connection, POLLIN)) {
        const ssize_t received = recv(connection, &answer, 1, MSG_DONTWAIT);
        if (received == 1) return answer;
        if (received == 0 || (errno != EINTR && errno != EAGAIN)) return 0;
    }
    return 0;
}

}  // namespace

void PrepareReportSender() {
    const std::string path = SenderPath();
    if (path.empty() || path.size() >= PATH_MAX) return;
    if (spLaunches == nullptr)
        spLaunches = static_cast<Launch*>(AllocateWipedMemory(kReports * sizeof(Launch)));
    std::size_t size = sizeof(Program);
    for (const char* name : kVariables) {
        const char* value = GetNarrowEnvironment(name);
        if (value != nullptr) size += std::strlen(name) + std::strlen(value) + 2;
    }
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return;
    auto* const program = static_cast<Program*>(pages);
    std::memcpy(program->path, path.c_str(), path.size());
    program->arguments[0] = program->path;
    char* text = program->text;
    char** next = program->environment;
    for (const char* name : kVariables) {
        const char* value = GetNarrowEnvironment(name);
        if (value == nullptr) continue;
        *next++ = text;
        text = stpcpy(stpcpy(stpcpy(text, name), "="), value) + 1;
    }
    spProgram = program;  // one of an earlier installation stays: a crash may be using it
}

char RunReportSender(const ReportPiece* pieces, std::size_t count, unsigned int seconds) {
    if (spProgram == nullptr || spLaunches == nullptr) return 0;
    Launch* const launch = TakeLaunch();
    if (launch == nullptr) return 0;
    int ends[2];
    char answer = 0;
    bool isOver = true;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
        const Deadline deadline(seconds);
        const pid_t between = Start(launch, ends[1], seconds);
        close(ends[1]);
        if (between > 0) answer = Converse(ends[0], pieces, count, deadline);
        close(ends[0]);
        isOver = between <= 0 || Collect(between);
    }
    if (isOver) launch->isTaken = false;
    return answer;
}

}  // namespace ZBase::os
