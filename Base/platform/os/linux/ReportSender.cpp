// The sender is started by `clone` without a copy of the memory and without the handlers that `fork` runs, on
// stacks that were set aside: nothing here takes a lock, so it works while the heap's lock is held by the
// thread that crashed. A process in between ends at once, so that the sender is no child of this process: a
// server that waits for its children never sees it.

#include <Base/platform/os/ReportSender.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
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

struct Launch {
    alignas(16) char outerStack[kStackSize];
    alignas(16) char innerStack[kStackSize];
    char path[PATH_MAX];
    char* arguments[2];
    char* environment[std::size(kVariables) + 1];
    int connection;
    unsigned int seconds;
    char text[1];  // the environment
};

Launch* spLaunch = nullptr;

std::string SenderPath() {
    Dl_info library{};
    if (dladdr(reinterpret_cast<const void*>(&PrepareReportSender), &library) == 0) return "";
    char* resolved = realpath(library.dli_fname, nullptr);
    if (resolved == nullptr) return "";
    std::string path = resolved;
    std::free(resolved);
    return path.substr(0, path.rfind('/')) + kSender;
}

// Runs in the new process, which shares the memory of the crashed one.
int RunSender(void* launch) {
    const auto* const self = static_cast<const Launch*>(launch);
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal) sigaction(signal, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    dup2(self->connection, STDIN_FILENO);
    const int sink = open("/dev/null", O_RDWR);
    dup2(sink, STDOUT_FILENO);
    dup2(sink, STDERR_FILENO);
    if (syscall(SYS_close_range, 3u, ~0u, 0u) != 0) {
        for (int descriptor = 3; descriptor != 65536; ++descriptor) close(descriptor);
    }
    alarm(self->seconds);
    execve(self->path, self->arguments, self->environment);
    _exit(127);
}

int RunBetween(void* launch) {
    auto* const self = static_cast<Launch*>(launch);
    setsid();
    clone(RunSender, self->innerStack + kStackSize, CLONE_VM | CLONE_VFORK | SIGCHLD, self);
    _exit(0);
}

void Start(int connection, unsigned int seconds) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    spLaunch->connection = connection;
    spLaunch->seconds = seconds;
    const int between =
        clone(RunBetween, spLaunch->outerStack + kStackSize, CLONE_VM | CLONE_VFORK, spLaunch);
    while (between > 0 && waitpid(between, nullptr, __WALL) < 0 && errno == EINTR) {
    }
    sigprocmask(SIG_SETMASK, &before, nullptr);
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
    std::size_t size = sizeof(Launch);
    for (const char* name : kVariables) {
        const char* value = std::getenv(name);
        if (value != nullptr) size += std::strlen(name) + std::strlen(value) + 2;
    }
    void* pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (pages == MAP_FAILED) return;
    auto* const launch = static_cast<Launch*>(pages);
    std::memcpy(launch->path, path.c_str(), path.size());
    launch->arguments[0] = launch->path;
    char* text = launch->text;
    char** next = launch->environment;
    for (const char* name : kVariables) {
        const char* value = std::getenv(name);
        if (value == nullptr) continue;
        *next++ = text;
        text = stpcpy(stpcpy(stpcpy(text, name), "="), value) + 1;
    }
    spLaunch = launch;  // one of an earlier installation stays: a crash may be using it
}

char RunReportSender(const ReportPiece* pieces, std::size_t count, unsigned int seconds) {
    int ends[2];
    if (spLaunch == nullptr || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return 0;
    const Deadline deadline(seconds);
    Start(ends[1], seconds);
    close(ends[1]);
    const char answer = Converse(ends[0], pieces, count, deadline);
    close(ends[0]);
    return answer;
}

}  // namespace ZBase::os
