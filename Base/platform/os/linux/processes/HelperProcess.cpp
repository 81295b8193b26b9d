// A helper is started by `clone` without a copy of the memory and without the handlers that `fork` runs, on
// stacks that were allocated before: nothing here takes a lock, so it works while any thread holds the heap's
// or the loader's. A process in between lives as long as the helper and reaps it, so a server that waits for
// its children never sees it, not even as a subreaper. That process sends no signal when it ends. Every wait
// for either has a bound.
//
// The code in the new processes shares the memory, and the thread-local variables, of the thread that started
// them and continues: its system calls don't set `errno`.

#include <Base/platform/os/linux/modules/ModulePlace.h>
#include <Base/platform/os/linux/processes/HelperProcess.h>
#include <Base/platform/os/linux/processes/ProgramStart.h>
#include <Base/platform/os/linux/processes/SignalsHeldBack.h>
#include <Base/platform/os/linux/processes/x86_64/SystemCall.h>

#include <fcntl.h>
#include <link.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace ZBase::os {

namespace {

constexpr char kOrigin[] = "LD_ORIGIN_PATH=";
static_assert(sizeof HelperProgram::origin >= sizeof kOrigin + sizeof HelperProgram::path - 1);

constexpr unsigned int kEndMilliseconds = 2000;  // for the end of a helper that has replied

// The kernel's layout.
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

// This process may have reached its own limits.
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

// A program with the rights of another user than its caller loads libraries from the system's directories
// only. Its environment has no variable of the caller.
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

// Runs in the new process. What never returns does not wipe off what AddressSanitizer notes of its frame in
// the memory that both processes share.
__attribute__((no_sanitize("address"))) int RunHelper(void* launch) {
    const auto* const self = static_cast<const HelperLaunch*>(launch);
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

// It ends with the thread that started it, at the latest, so that no memory outlives the process for long.
__attribute__((no_sanitize("address"))) int RunBetween(void* launch) {
    auto* const self = static_cast<HelperLaunch*>(launch);
    SystemCall(SYS_prctl, PR_SET_PDEATHSIG, SIGKILL);
    SystemCall(SYS_setsid);
    const int helper =
        clone(RunHelper, self->innerStack + HelperLaunch::kStackSize, CLONE_VM | CLONE_VFORK | SIGCHLD, self);
    CloseFrom(0);  // so that files the server closes are closed
    if (helper > 0) SystemCall(SYS_wait4, helper, nullptr, __WALL, nullptr);
    SystemCall(SYS_exit_group, 0);
    return 0;
}

pid_t Start(HelperLaunch* launch) {
    const SignalsHeldBack heldBack;
    return clone(RunBetween, launch->outerStack + HelperLaunch::kStackSize, CLONE_VM, launch);
}

// Whether the process in between has ended. It is collected, and no child is that `fork` has made. A child of
// vfork may ask for one of its parent's, which it can't collect.
bool HasEnded(pid_t between) {
    const pid_t collected = waitpid(between, nullptr, static_cast<int>(__WCLONE | WNOHANG));
    if (collected < 0 && errno == ECHILD) return syscall(SYS_tgkill, between, between, 0) != 0;
    return collected == between;
}

// Waits for the end of the process in between; false if it continues.
bool Collect(pid_t between) {
    for (unsigned int waited = 0; waited != kEndMilliseconds; ++waited) {
        if (HasEnded(between)) return true;
        const timespec millisecond{0, 1'000'000};
        nanosleep(&millisecond, nullptr);
    }
    return false;
}

/// The time limit for all steps.
class Deadline {
public:
    explicit Deadline(unsigned int seconds) { mEnd = Now() + 1000LL * seconds; }

    // Waits until the connection is ready for `events`; false when the time is over.
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

// Puts `name` in the place of what stands behind the last "/", or of all if it is absolute.
bool Exchange(char (&path)[PATH_MAX], const char* name) {
    char* const slash = std::strrchr(path, '/');
    char* const place = *name == '/' || slash == nullptr ? path : slash + 1;
    const std::size_t size = std::strlen(name) + 1;
    if (size > static_cast<std::size_t>(path + sizeof path - place)) return false;
    std::memcpy(place, name, size);
    return true;
}

// Only the links of the last name are followed: they decide the directory that the file itself stands in. A
// link of the kernel's may lead to a file that was deleted. It needs no descriptor and, unlike `realpath`, no
// heap for a long path.
bool FollowLinks(const char* name, char (&path)[PATH_MAX]) {
    constexpr int kMostLinks = 40;  // as the kernel has it
    path[0] = 0;
    if (*name != '/') {
        if (getcwd(path, sizeof path - 1) == nullptr) return false;
        std::memcpy(path + std::strlen(path), "/", 2);
    }
    if (!Exchange(path, name)) return false;
    char link[PATH_MAX];
    for (int i = 0; i != kMostLinks; ++i) {
        const ssize_t length = readlink(path, link, sizeof link - 1);
        if (length < 0) return i != 0 || errno == EINVAL;  // no link
        link[length] = 0;
        if (!Exchange(path, link)) return false;
    }
    return false;
}

}  // namespace

bool HelperProgram::Find(const char* name) {
    ModulePlace place{};
    if (!ModulePlace::Find(reinterpret_cast<std::uint64_t>(&RunHelper), place)) return false;
    // The library may have been found through a link in another directory; the program's own name is empty.
    const bool isProgram = *place.map->l_name == 0;
    const char* const started = ProgramAsStarted();
    const bool isFound =
        isProgram ? FollowLinks("/proc/self/exe", path) || (started != nullptr && FollowLinks(started, path))
                  : FollowLinks(place.map->l_name, path);
    if (!isFound) return false;
    char* const end = std::strrchr(path, '/');
    const std::size_t size = std::strlen(name) + 1;
    if (end == nullptr || end + 1 + size > path + sizeof path) return false;
    *end = 0;
    stpcpy(stpcpy(origin, kOrigin), end == path ? "/" : path);
    *end = '/';
    std::memcpy(end + 1, name, size);
    arguments[0] = path;
    arguments[1] = nullptr;
    environment[0] = origin;
    environment[1] = nullptr;
    return true;
}

char** HelperProgram::EndOfEnvironment() {
    return std::find(environment, environment + kMostVariables, nullptr);
}

// A process that was not over in time ends later, and is collected then.
bool HelperLaunch::Take() {
    if (!isTaken.exchange(true)) return true;
    const pid_t left = remaining.exchange(0);  // one thread asks
    if (left == 0 || HasEnded(left)) return left != 0;
    remaining = left;
    return false;
}

char HelperLaunch::Run(const HelperProgram& helper, const ReportPiece* pieces, std::size_t count,
                       unsigned int limit) {
    int ends[2];
    char answer = 0;
    bool isOver = true;
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0) {
        const Deadline deadline(limit);
        program = &helper;
        connection = ends[1];
        seconds = limit;
        const pid_t between = Start(this);
        close(ends[1]);
        if (between > 0) answer = Converse(ends[0], pieces, count, deadline);
        close(ends[0]);
        isOver = between <= 0 || Collect(between);
        if (!isOver) remaining = between;
    }
    if (isOver) isTaken = false;
    return answer;
}

}  // namespace ZBase::os
