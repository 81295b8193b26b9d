// The signal's handler only wakes a thread that was started before, since a process that hangs can't start
// one: that takes the heap. The thread's memory besides its stack is here.

#include <Base/platform/os/linux/faults/FaultState.h>
#include <Base/platform/os/linux/files/AbsoluteDirectory.h>
#include <Base/platform/os/linux/text/NativeText.h>
#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/processes/Environment.h>
#include <Base/platform/os/stacks/AllStacks.h>

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

namespace ZBase::os {

namespace {

struct Choice {
    const char* name;
    int signal;
};
constexpr Choice kChoices[] = {
    {"SIGHUP", SIGHUP}, {"SIGQUIT", SIGQUIT}, {"SIGUSR1", SIGUSR1}, {"SIGUSR2", SIGUSR2}};

constinit std::atomic<std::uint32_t> sWanted{0};
constinit std::atomic<pid_t> sProcess{0};  // that the thread belongs to; a forked child has no such thread
char sDirectory[PATH_MAX];
char sTemporary[PATH_MAX];
struct sigaction sBefore[NSIG];

void CallBefore(int signal, siginfo_t* information, void* context) {
    const struct sigaction& before = sBefore[signal];
    if ((before.sa_flags & SA_SIGINFO) != 0)
        before.sa_sigaction(signal, information, context);
    else if (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN)
        before.sa_handler(signal);
}

void Wake(int signal, siginfo_t* information, void* context) {
    AllowMisalignment();
    const int error = errno;
    if (getpid() == sProcess) {
        ++sWanted;
        syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&sWanted), FUTEX_WAKE_PRIVATE, 1, nullptr,
                nullptr, 0);
    } else if ((sBefore[signal].sa_flags & SA_SIGINFO) == 0 && sBefore[signal].sa_handler == SIG_DFL) {
        std::signal(signal, SIG_DFL);  // delivered when this returns
        raise(signal);
    }
    errno = error;
    CallBefore(signal, information, context);
}

/// "stacks-20261122T014500.123-4711.txt" in a directory.
bool WriteIn(const char* directory) {
    using namespace std::chrono;
    const auto now = floor<milliseconds>(system_clock::now());
    const auto day = floor<days>(now);
    const year_month_day date(day);
    const hh_mm_ss time(now - day);
    char path[PATH_MAX + 64];
    std::snprintf(path, sizeof path, "%s/stacks-%04d%02u%02uT%02d%02d%02d.%03d-%d.txt", directory,
                  static_cast<int>(date.year()), static_cast<unsigned int>(date.month()),
                  static_cast<unsigned int>(date.day()), static_cast<int>(time.hours().count()),
                  static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()),
                  static_cast<int>(time.subseconds().count()), static_cast<int>(getpid()));
    return WriteAllStacks(path);
}

void* Watch(void*) {
    for (std::uint32_t done = 0;;) {
        const std::uint32_t wanted = sWanted.load();
        if (wanted == done) {
            syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&sWanted), FUTEX_WAIT_PRIVATE, done, nullptr,
                    nullptr, 0);
            continue;
        }
        done = wanted;
        if (!WriteIn(sDirectory)) WriteIn(sTemporary);
    }
    return nullptr;
}

// It blocks all signals but the one that it waits for: the others are the host's.
bool BeginWatching(int signal) {
    constexpr std::size_t kStack = std::size_t{256} * 1024;
    sigset_t others;
    sigset_t before;
    sigfillset(&others);
    sigdelset(&others, signal);
    pthread_attr_t attributes;
    pthread_t thread{};
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStack);
    pthread_sigmask(SIG_SETMASK, &others, &before);
    const bool isBegun = pthread_create(&thread, &attributes, Watch, nullptr) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    pthread_attr_destroy(&attributes);
    if (isBegun) pthread_setname_np(thread, "zbase-stacks");
    return isBegun;
}

bool Take(int signal) {
    struct sigaction action {};
    if (sigaction(signal, nullptr, &action) != 0) return false;
    if (action.sa_sigaction == Wake) return true;
    sBefore[signal] = action;
    action = {};
    action.sa_sigaction = Wake;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    return sigaction(signal, &action, nullptr) == 0;
}

}  // namespace

bool WriteStacksAtSignal(const unsigned short* signal, const unsigned short* directory) {
    const std::string name = ToNative(signal);
    for (const Choice& choice : kChoices) {
        if (name != choice.name) continue;
        const char* const given = GetNarrowEnvironment("TMPDIR");
        const std::string place = AbsoluteDirectory(ToNative(directory));
        const std::string temporary = AbsoluteDirectory(given == nullptr || *given == 0 ? "/tmp" : given);
        StayLoaded();
        std::snprintf(sDirectory, sizeof sDirectory, "%s", place.c_str());
        std::snprintf(sTemporary, sizeof sTemporary, "%s", temporary.c_str());
        if (sProcess != getpid() && !BeginWatching(choice.signal)) return false;
        sProcess = getpid();
        return Take(choice.signal);
    }
    return false;
}

}  // namespace ZBase::os
