// CrashStormProbe KIND [ARGUMENT]: installs the crash handler, and then two things go wrong at the same time.
// It ends itself after a minute, so that whoever hangs is seen.

#include <Base/ZBase.h>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace {

namespace fs = std::filesystem;

void* volatile gNull = nullptr;
volatile int gZero = 0;
volatile int gSink = 0;
std::atomic<bool> gGo = false;

[[gnu::noipa]] void WriteToNull() {
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}
[[gnu::noipa]] void DivideByZero() {
    gSink = 1 / gZero;
    asm volatile("");
}
[[gnu::noipa]] void RunIllegalInstruction() {
    asm volatile("ud2");
}
[[gnu::noipa]] void Abort() {
    std::abort();
}
[[gnu::noipa]] void SendBusError() {
    syscall(SYS_tgkill, getpid(), gettid(), SIGBUS);
}
constexpr void (*kCrashes[])() = {WriteToNull, DivideByZero, RunIllegalInstruction, Abort, SendBusError};

void CountSignal(int) {}

fs::path Dumps() {
    return fs::path(std::getenv("ZENT_CRASH_CONFIG_FILE")).parent_path() / "dumps";
}

// Waits for a dump in the directory.
void AwaitDump() {
    while (!fs::exists(Dumps()) || fs::is_empty(Dumps())) usleep(1000);
}

// Waits for SIGUSR1 from outside.
void AwaitGo() {
    while (!gGo) usleep(1000);
}

// Prints a line by which the test knows that all is set up.
void Say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

// Signals reach busy threads all the time, while dumps are made.
void DumpInAStormOfSignals(int count) {
    std::signal(SIGUSR2, CountSignal);
    std::vector<std::thread> busy;
    for (int i = 0; i != 4; ++i) {
        busy.emplace_back([] {
            for (;;) gSink = gSink + 1;
        });
    }
    std::thread([&] {
        for (std::size_t i = 0;; i = (i + 1) % busy.size()) pthread_kill(busy[i].native_handle(), SIGUSR2);
    }).detach();
    for (int i = 0; i != count; ++i) std::printf("%d", ZBase::CreateDump());
    std::fflush(stdout);
    _exit(0);
}

void CrashOnThreads(int count) {
    static std::atomic<int> sReady = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != count; ++i) {
        threads.emplace_back([i, count] {
            for (++sReady; sReady != count;) {
            }
            kCrashes[static_cast<std::size_t>(i) % std::size(kCrashes)]();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// The crash comes so many microseconds behind the beginning of a dump.
void CrashBesideDump(int microseconds) {
    static std::atomic<bool> sBegun = false;
    std::thread([] {
        sBegun = true;
        for (;;) ZBase::CreateDump();
    }).detach();
    while (!sBegun) {
    }
    usleep(static_cast<useconds_t>(microseconds));
    WriteToNull();
}

void CrashInChild() {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        WriteToNull();
    }
    int status = 0;
    waitpid(child, &status, 0);
    Say(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV ? "child crashed" : "child lived");
}

void ForkWhileCrashIsSent(int) {
    std::thread([] { DivideByZero(); }).detach();
    AwaitGo();
    CrashInChild();
    for (;;) pause();
}

void ForkWhileDumpIsSent(int) {
    std::thread dumping([] { ZBase::CreateDump(); });
    AwaitGo();
    const pid_t child = fork();
    if (child == 0) _exit(ZBase::CreateDump() ? 0 : 1);
    CrashInChild();
    int status = 0;
    waitpid(child, &status, 0);
    dumping.join();
    Say(status == 0 ? "child dumped" : "child did not dump");
}

[[gnu::noipa]] void CrashInChildOfVfork(int) {
    const pid_t child = vfork();
    if (child == 0) WriteToNull();
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("%d %d %d\n", WIFSIGNALED(status) ? WTERMSIG(status) : 0, prctl(PR_GET_DUMPABLE),
                ZBase::CreateDump());
    std::fflush(stdout);
    DivideByZero();
}

// The child of vfork goes on until the dump is there.
void DumpBesideVfork(int) {
    static std::atomic<bool> sDumped = false;
    static std::atomic<bool> sRunning = false;
    std::thread forking([] {
        const pid_t child = vfork();
        if (child == 0) {
            sRunning = true;
            while (!sDumped) usleep(1000);
            _exit(0);
        }
        waitpid(child, nullptr, 0);
    });
    while (!sRunning) usleep(1000);
    std::printf("%d\n", ZBase::CreateDump());
    sDumped = true;
    forking.join();
}

std::atomic<int> gChildSignals = 0;

// As the one to whom orphans are given.
void DumpAsSubreaper(int) {
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    std::signal(SIGCHLD, [](int) { ++gChildSignals; });
    const bool first = ZBase::CreateDump();
    const bool second = ZBase::CreateDump();
    usleep(200000);
    const pid_t left = waitpid(-1, nullptr, __WALL | WNOHANG);
    std::printf("%d%d %d %d\n", first, second, left, gChildSignals.load());
}

void QuickExitBesideCrash(int) {
    std::thread([] { WriteToNull(); }).detach();
    AwaitDump();
    std::quick_exit(0);
}

void ExitBesideDump(int) {
    std::thread([] { ZBase::CreateDump(); }).detach();
    AwaitDump();
    std::exit(0);
}

// Prints the size of the alternate stack, and whether what lies below can't be touched.
void ShowCrashStack(int) {
    stack_t stack{};
    sigaltstack(nullptr, &stack);
    unsigned char resident = 0;
    char* const below = static_cast<char*>(stack.ss_sp) - 4096;
    int ends[2];
    const bool isGuarded =
        mincore(below, 4096, &resident) == 0 && pipe(ends) == 0 && write(ends[1], below, 1) < 0;
    std::printf("%d %d\n", stack.ss_size >= 65536, isGuarded);
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, void (*)(int)> kinds = {
        {"signal-storm", DumpInAStormOfSignals},   {"threads", CrashOnThreads},
        {"beside-dump", CrashBesideDump},          {"fork-beside-crash", ForkWhileCrashIsSent},
        {"fork-beside-dump", ForkWhileDumpIsSent}, {"vfork", CrashInChildOfVfork},
        {"dump-beside-vfork", DumpBesideVfork},    {"subreaper", DumpAsSubreaper},
        {"quick-exit", QuickExitBesideCrash},      {"exit-beside-dump", ExitBesideDump},
        {"crash-stack", ShowCrashStack},
    };
    alarm(60);
    std::signal(SIGUSR1, [](int) { gGo = true; });
    if (!ZBase::InstallCrashHandler()) return 96;
    const auto kind = kinds.find(argv[1]);
    if (kind == kinds.end()) return 97;
    kind->second(argc > 2 ? std::atoi(argv[2]) : 0);
    return 0;
}
