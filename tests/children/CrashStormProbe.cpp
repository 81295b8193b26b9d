// CrashStormProbe KIND [ARGUMENT]: installs the crash handler, and then two things go wrong at the same time.
// It ends itself after a minute, so that a hang is noticed.

#include <Base/ZBase.h>

#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
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

// Waits for SIGUSR1 from the test.
void AwaitGo() {
    while (!gGo) usleep(1000);
}

// Prints a line that tells the test that all is set up.
void Say(const char* line) {
    std::puts(line);
    std::fflush(stdout);
}

// Signals reach busy threads all the time, during dumps too.
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

// A thread whose cancellation is pending while it does this. True if it was cancelled behind that.
bool IsCancelledBehind(void (*operation)()) {
    const auto run = [](void* argument) -> void* {
        pthread_cancel(pthread_self());
        reinterpret_cast<void (*)()>(argument)();
        pthread_testcancel();
        return nullptr;
    };
    pthread_t thread{};
    void* end = nullptr;
    pthread_create(&thread, nullptr, run, reinterpret_cast<void*>(operation));
    pthread_join(thread, &end);
    return end == PTHREAD_CANCELED;
}

void CrashCancelled(int) {
    IsCancelledBehind(WriteToNull);
}

// What a cancelled thread does, and then another.
void DumpCancelled(int) {
    const auto dump = [] { std::printf("%d ", ZBase::CreateDump()); };
    const auto stacks = [] { std::printf("%d ", ZBase::DumpAllStacks("/dev/null")); };
    for (void (*const operation)() : {+dump, +stacks}) {
        std::printf("%s: ", IsCancelledBehind(operation) ? "cancelled" : "not cancelled");
        operation();
    }
}

// The crash comes this many microseconds after the beginning of a dump.
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

// The child of vfork continues until the dump is there.
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

// Each thread waits for its vfork, the next 700 ms longer than the one before: there is always one about to
// return. The output of the children is not waited for.
void CrashBesideManyVforks(int count) {
    static std::atomic<int> sRunning = 0;
    static std::atomic<bool> sCrashing = false;
    for (int i = 1; i <= count; ++i) {
        std::thread([i] {
            const pid_t child = vfork();
            if (child == 0) {
                close(STDOUT_FILENO);
                close(STDERR_FILENO);
                ++sRunning;
                while (!sCrashing) usleep(1000);
                usleep(static_cast<useconds_t>(700'000 * i));
                _exit(0);
            }
            waitpid(child, nullptr, 0);
            pause();
        }).detach();
    }
    while (sRunning != count) usleep(1000);
    sCrashing = true;
    WriteToNull();
}

std::atomic<bool> gLeavesTheHeap = false;

// A stack without its innermost frames.
[[gnu::noipa]] void StayInTheHeap(int depth) {
    if (depth != 0) StayInTheHeap(depth - 1);
    for (std::size_t i = 1; depth == 0 && !gLeavesTheHeap; i = i * 5 % 100'003) {
        void* volatile block = std::malloc(i);
        std::free(block);
    }
    asm volatile("" ::: "memory");
}

// Captures a thread that is in the heap most of the time, and then crashes on it.
void CaptureInTheHeap(int count) {
    static std::atomic<bool> sIsThere = false;
    std::thread busy([] {
        sIsThere = true;
        StayInTheHeap(20);
        WriteToNull();
    });
    while (!sIsThere) usleep(100);
    usleep(10'000);
    int empty = 0;
    for (int i = 0; i != count; ++i) {
        ZBase::CallStack* const stack = ZBase::CreateCallStack(reinterpret_cast<void*>(busy.native_handle()));
        empty += stack->GetLineCount() == 0;
        stack->Delete();
    }
    std::printf("%d empty\n", empty);
    std::fflush(stdout);
    gLeavesTheHeap = true;
    busy.join();
}

std::atomic<int> gChildSignals = 0;

// As a subreaper.
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

// The next search for a free block follows an invalid pointer, with the heap's lock held.
[[gnu::noipa]] void FaultInMallocWithTranslator(int) {
    std::thread([] { pause(); }).detach();  // with one thread alone the heap takes no lock
    ZBase::SetExceptionTranslator();
    char* block = static_cast<char*>(std::malloc(5000));
    char* behind = static_cast<char*>(std::malloc(5000));
    char* freed = block;
    asm volatile(""
                 : "+r"(freed), "+r"(behind));  // hides that both are the same, and that `behind` is not used
    std::free(block);
    const std::uintptr_t nowhere = 16;
    std::memcpy(freed + sizeof(void*), &nowhere, sizeof nowhere);
    asm volatile("" : : "r"(freed) : "memory");
    gSink = *static_cast<volatile char*>(std::malloc(3000));
    std::free(behind);
}

// A function of the C library beside the allocator.
void FaultInLibraryWithTranslator(int) {
    ZBase::SetExceptionTranslator();
    std::size_t (*volatile measure)(const char*) =
        std::strlen;  // so that the compiler does not know that it can't throw
    try {
        gSink = static_cast<int>(measure(static_cast<const char*>(gNull)));
    } catch (const ZBase::StructuredException&) {
        Say("caught");
    }
}

// Crashes while threads set keys.
void CrashBesideKeys(int) {
    for (int i = 0; i != 4; ++i) {
        std::thread([i] {
            const std::string key = "key" + std::to_string(i);
            for (int k = 0;; ++k) ZBase::SetCrashAttr(key.c_str(), std::string(k % 500, 'v').c_str(), true);
        }).detach();
    }
    usleep(20000);
    WriteToNull();
}

// A child whose first keys are written anew while its dump is read. Prints whether the dump was written and
// the memory behind it stayed the same.
void SetKeysBesideDumpInChild(int) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        const auto set = [](int times) {
            for (int i = 0; i != times; ++i) ZBase::SetCrashAttr("key", std::string(400, 'v').c_str(), true);
            return ZBase::GetPrivateBytes();
        };
        bool written = false;
        std::thread dumping([&] { written = ZBase::CreateDump(); });
        AwaitDump();
        set(100);
        dumping.join();
        const auto before = set(100);
        const auto growth = static_cast<std::int64_t>(set(20'000)) - static_cast<std::int64_t>(before);
        std::printf("%d %s\n", written, growth < 1 << 20 ? "flat" : "grows");
        std::fflush(stdout);
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

// Sets each of two thousand keys a hundred times.
void SetManyKeys(int) {
    for (int k = 0; k != 100; ++k) {
        for (int i = 0; i != 2000; ++i)
            ZBase::SetCrashAttr(("key" + std::to_string(i)).c_str(), std::to_string(k).c_str(), true);
    }
    WriteToNull();
}

// The lowest octet of the frame is the first one that is touched.
[[gnu::noipa]] void UseHugeFrame() {
    volatile char frame[4 << 20];
    frame[0] = 1;
    asm volatile("" : : "r"(frame) : "memory");
}
[[gnu::noipa]] void OverflowByHugeFrame(int) {
    const rlimit limit{1 << 20, 1 << 20};
    if (setrlimit(RLIMIT_STACK, &limit) != 0) _exit(94);
    UseHugeFrame();
    asm volatile("");
}

// The frame is kept by the frame pointer, since its size is not known beforehand.
[[gnu::noipa]] void LoseStack(int size) {
    volatile char* const room =
        static_cast<volatile char*>(__builtin_alloca(static_cast<std::size_t>(size) + 64));
    room[0] = 1;
    asm volatile("mov $16, %%rsp\n\tpush %%rax" : : "r"(room) : "memory");
}
[[gnu::noipa]] void CrashWithoutStack(int) {
    LoseStack(100);
    asm volatile("");
}

// Like a server that leaves its signals to one thread.
void CrashWithSignalsBlocked(int) {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
    std::thread([] {
        ZBase::InstallCrashStack();
        WriteToNull();
    }).join();
}

void CrashWithoutDirectory(int) {
    fs::remove(Dumps());
    WriteToNull();
}

// Like a server that drops its rights after its setup.
void CrashWithoutRights(int) {
    fs::permissions(Dumps(), fs::perms::owner_read | fs::perms::owner_exec);
    if (geteuid() == 0 && setuid(65534) != 0) _exit(94);
    WriteToNull();
}

// Prints the size of the alternate stack, and whether the memory below is inaccessible.
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
        {"signal-storm", DumpInAStormOfSignals},
        {"threads", CrashOnThreads},
        {"beside-dump", CrashBesideDump},
        {"cancelled-crash", CrashCancelled},
        {"cancelled-dump", DumpCancelled},
        {"fork-beside-crash", ForkWhileCrashIsSent},
        {"fork-beside-dump", ForkWhileDumpIsSent},
        {"vfork", CrashInChildOfVfork},
        {"dump-beside-vfork", DumpBesideVfork},
        {"captured-heap", CaptureInTheHeap},
        {"beside-vforks", CrashBesideManyVforks},
        {"subreaper", DumpAsSubreaper},
        {"quick-exit", QuickExitBesideCrash},
        {"exit-beside-dump", ExitBesideDump},
        {"crash-stack", ShowCrashStack},
        {"translated-malloc", FaultInMallocWithTranslator},
        {"translated-strlen", FaultInLibraryWithTranslator},
        {"beside-keys", CrashBesideKeys},
        {"keys-in-child", SetKeysBesideDumpInChild},
        {"many-keys", SetManyKeys},
        {"huge-frame", OverflowByHugeFrame},
        {"no-stack", CrashWithoutStack},
        {"blocked", CrashWithSignalsBlocked},
        {"no-directory", CrashWithoutDirectory},
        {"no-rights", CrashWithoutRights},
        {"nothing", [](int) { Say("installed"); }},
    };
    if (getauxval(AT_SECURE) != 0) Say("other rights");
    alarm(60);
    std::signal(SIGUSR1, [](int) { gGo = true; });
    if (!ZBase::InstallCrashHandler()) return 96;
    const auto kind = kinds.find(argv[1]);
    if (kind == kinds.end()) return 97;
    kind->second(argc > 2 ? std::atoi(argv[2]) : 0);
    return 0;
}
