// CountedProcess, loaded in front of a program by LD_PRELOAD, keeps what the libraries of the preset
// "coverage" counted in processes that end without their exit handlers: by _exit, abort and quick_exit, and
// by a signal whose handler puts back the standard action, and in those that a process with this kills.
// Elsewhere it does nothing.
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// The failures of tests/injection are not for what is called meanwhile.
[[gnu::visibility("default")]] volatile bool gIsKeepingCounters = false;

namespace {

template <typename Function>
Function* Find(void* where, const char* name) {
    return reinterpret_cast<Function*>(dlsym(where, name));
}

// Found at the start: the loader's lock may be held when they are needed.
void (*sKeep)();
void (*sBeginAnew)();
int (*sSetAction)(int, const struct sigaction*, struct sigaction*);
void (*sExit)(int);
void (*sQuickExit)(int);
void (*sAbort)();
int (*sKill)(pid_t, int);
std::atomic<bool>* sHeapIsForbidden;  // of tests/children/ForbiddenHeap.h, or null

constexpr int kEnd = 34;  // the first real-time signal, which the libraries do not take

void End(int);

[[gnu::constructor]] void FindAll() {
    if (sExit != nullptr) return;
    sSetAction = Find<int(int, const struct sigaction*, struct sigaction*)>(RTLD_NEXT, "sigaction");
    sQuickExit = Find<void(int)>(RTLD_NEXT, "quick_exit");
    sAbort = Find<void()>(RTLD_NEXT, "abort");
    sKill = Find<int(pid_t, int)>(RTLD_NEXT, "kill");
    sKeep = Find<void()>(RTLD_DEFAULT, "__gcov_dump");  // of all libraries
    sBeginAnew = Find<void()>(RTLD_DEFAULT, "__gcov_reset");
    sHeapIsForbidden = static_cast<std::atomic<bool>*>(dlsym(RTLD_DEFAULT, "gHeapIsForbidden"));
    sExit = Find<void(int)>(RTLD_NEXT, "_exit");
    struct sigaction action {};
    action.sa_handler = End;
    sSetAction(kEnd, &action, nullptr);
}

// The handler of a crash may hold a lock that this needs, such as the heap's: then the process ends without
// its counters.
void KeepCounters() {
    if (sKeep == nullptr || gIsKeepingCounters) return;
    gIsKeepingCounters = true;
    sigset_t alarms;
    sigemptyset(&alarms);
    sigaddset(&alarms, SIGALRM);
    pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
    alarm(5);
    const bool isForbidden = sHeapIsForbidden != nullptr && sHeapIsForbidden->exchange(false);
    sKeep();
    sBeginAnew();
    if (isForbidden) *sHeapIsForbidden = true;
    alarm(0);
    gIsKeepingCounters = false;
}

// What ends already is not cut off in the midst of it.
void End(int) {
    if (gIsKeepingCounters) return;
    KeepCounters();
    sKill(getpid(), SIGKILL);
}

/// Whether a process has this in front of it, and lives.
bool IsCounted(pid_t process) {
    char path[40];
    char line[200];
    std::snprintf(path, sizeof path, "/proc/%d/status", process);
    std::FILE* const file = std::fopen(path, "re");
    if (file == nullptr) return false;
    bool isCaught = false;
    bool hasEnded = false;  // but nobody has waited for it
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (std::strncmp(line, "State:\tZ", 8) == 0) hasEnded = true;
        if (std::strncmp(line, "SigCgt:", 7) == 0)
            isCaught = (std::strtoull(line + 7, nullptr, 16) >> (kEnd - 1) & 1) != 0;
    }
    std::fclose(file);
    return isCaught && !hasEnded;
}

bool EndsBy(int signal) {
    return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL ||
           signal == SIGABRT || signal == SIGTRAP;
}

}  // namespace

#define ZBASE_INSTEAD extern "C" [[gnu::visibility("default")]]

ZBASE_INSTEAD void _exit(int status) {
    KeepCounters();
    sExit(status);
    __builtin_unreachable();
}

ZBASE_INSTEAD void _Exit(int status) noexcept {
    _exit(status);
}

ZBASE_INSTEAD void quick_exit(int status) noexcept {
    KeepCounters();
    sQuickExit(status);
    __builtin_unreachable();
}

ZBASE_INSTEAD void abort() noexcept {
    KeepCounters();
    sAbort();
    __builtin_unreachable();
}

ZBASE_INSTEAD int sigaction(int signal, const struct sigaction* action, struct sigaction* before) noexcept {
    if (sSetAction == nullptr) FindAll();  // the start of another library
    if (action != nullptr && action->sa_handler == SIG_DFL && EndsBy(signal)) KeepCounters();
    return sSetAction(signal, action, before);
}

// One that is stopped, or waits with its signals blocked, ends without.
ZBASE_INSTEAD int kill(pid_t process, int signal) noexcept {
    if (signal == SIGKILL && process > 0 && process != getpid() && IsCounted(process)) {
        sKill(process, kEnd);
        for (int waited = 0; waited < 500 && IsCounted(process); ++waited) usleep(10'000);
    }
    return sKill(process, signal);
}
