// CrashProbe KIND [KEY VALUE]...: sets crash keys, installs the crash handler and crashes in one of many
// ways. The configuration comes from the environment, as in any process. Each crash happens in a function of
// its own, which must be found on the stack.

#include <Base/ZBase.h>

#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "ForbiddenHeap.h"
#include "PureVirtual.h"
#include "StackOverflow.h"

namespace {

void* volatile gNull = nullptr;
volatile int gZero = 0;
volatile int gSink = 0;

[[gnu::noipa]] void WriteToNull() {
    gHeapIsForbidden = true;
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

// A data file.
[[gnu::noipa]] void WriteToNullBesideAMappedFile() {
    const int file = open(std::getenv("ZENT_CRASH_CONFIG_FILE"), O_RDONLY);
    if (mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, file, 0) == MAP_FAILED) _exit(4);
    WriteToNull();
}

[[gnu::noipa]] void DivideByZero() {
    gHeapIsForbidden = true;
    gSink = 1 / gZero;
    asm volatile("");
}

[[gnu::noipa]] void Abort() {
    gHeapIsForbidden = true;
    std::abort();
}

[[gnu::noipa]] void ThrowUncaught() {
    throw 1;
}

[[gnu::noipa]] void CallPureVirtual() {
    Whole whole;
    asm volatile("" : : "r"(&whole));
}

[[gnu::noipa]] void ExhaustStack() {
    gHeapIsForbidden = true;
    gSink = Overflow(0);
}

// Touches each page, so that a guard page is hit, with the stack pointer beyond it.
[[gnu::noipa]] int OverflowByLargeFrames(int depth) {
    volatile char frame[16384];
    for (std::size_t at = sizeof frame; at >= 4096; at -= 4096) frame[at - 1] = static_cast<char>(depth);
    const int result = depth < 0 ? 0 : OverflowByLargeFrames(depth + 1) + frame[4095];
    asm volatile("");
    return result;
}

// Maps readable memory right below the guard page of the thread's stack.
void MapBelowStack() {
    constexpr std::size_t kSize = 65536;
    pthread_attr_t attributes;
    void* bottom = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstack(&attributes, &bottom, &size);
    pthread_attr_getguardsize(&attributes, &guard);
    pthread_attr_destroy(&attributes);
    mmap(static_cast<char*>(bottom) - guard - kSize, kSize, PROT_READ | PROT_WRITE,
         MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
}

[[gnu::noipa]] void ExhaustStackByLargeFrames() {
    gHeapIsForbidden = true;
    gSink = OverflowByLargeFrames(0);
}

[[gnu::noipa]] void JumpNowhere() {
    gHeapIsForbidden = true;
    reinterpret_cast<void (*)()>(gNull)();
    asm volatile("");
}

[[gnu::noipa]] void RunIllegalInstruction() {
    gHeapIsForbidden = true;
    asm volatile("ud2");
}

[[gnu::noipa]] void HitBreakpoint() {
    gHeapIsForbidden = true;
    asm volatile("int3");
}

class CrashesAtExit {
public:
    bool mArmed = false;
    ~CrashesAtExit() {
        if (mArmed) WriteToNull();
    }
};
CrashesAtExit sCrashesAtExit;

// With one thread alone the heap takes no lock.
void StartAnotherThread() {
    std::thread([] { pause(); }).detach();
}

// The next search for a free block follows an invalid pointer, with the heap's lock held.
[[gnu::noipa]] void CrashInMalloc() {
    StartAnotherThread();
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

std::atomic<bool> gParked = false;
void Park(int) {
    gParked = true;
    while (gParked) usleep(1000);
}

void UseHeap() {
    void* volatile block = std::malloc(100000);
    std::free(block);
}

// Stops a thread that uses the heap in a loop, again and again until it is stopped while it has the lock.
[[gnu::noipa]] void CrashWhileAnotherHoldsTheHeap() {
    mallopt(M_ARENA_MAX, 1);
    signal(SIGUSR1, Park);
    static std::atomic<int> sAsked = 0;
    static std::atomic<int> sServed = 0;
    std::thread user([] {
        for (;;) UseHeap();
    });
    std::thread asker([] {
        for (;;) {
            while (sServed == sAsked) usleep(100);
            UseHeap();
            ++sServed;
        }
    });
    for (int tries = 0; tries != 2000; ++tries) {
        pthread_kill(user.native_handle(), SIGUSR1);
        while (!gParked) usleep(100);
        ++sAsked;
        for (int i = 0; i != 100 && sServed != sAsked; ++i) usleep(1000);
        if (sServed != sAsked) WriteToNull();
        gParked = false;
        usleep(100);
    }
    _exit(98);
}

[[gnu::noipa]] void CrashWithoutMemory() {
    rlimit limit{64 << 20, 64 << 20};
    setrlimit(RLIMIT_AS, &limit);
    for (std::size_t size = 1 << 20; size >= 4096; size /= 2) {
        while (mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) != MAP_FAILED) {
        }
    }
    WriteToNull();
}

[[gnu::noipa]] void CrashWithoutDescriptors() {
    while (open("/dev/null", O_RDONLY) >= 0) {
    }
    WriteToNull();
}

[[gnu::noipa]] void RunThread(void (*crash)(), bool ownStack) {
    if (ownStack) ZBase::InstallCrashStack();
    crash();
    asm volatile("");
}

[[gnu::noipa]] void CrashOnThread(void (*crash)(), bool ownStack) {
    std::thread(RunThread, crash, ownStack).join();
}

[[gnu::noipa]] void Linger() {
    pause();
    asm volatile("");
}

// Uses most of a stack of 1 MiB first.
[[gnu::noipa]] int Descend(int frames, void (*then)()) {
    volatile char frame[2048];
    frame[0] = static_cast<char>(frames);
    if (frames == 0) then();
    const int result = frames == 0 ? 0 : Descend(frames - 1, then) + frame[0];
    asm volatile("");
    return result;
}

// The thread that crashes is the last of 21.
[[gnu::noipa]] void CrashBesideDeepStacks() {
    static std::atomic<int> sDeep = 0;
    for (int i = 0; i != 20; ++i) {
        std::thread([] {
            Descend(400, [] {
                ++sDeep;
                Linger();
            });
        }).detach();
    }
    while (sDeep != 20) usleep(1000);
    std::thread([] { Descend(400, WriteToNull); }).join();
}

// Both are reported.
[[gnu::noipa]] void CrashInChildThenInParent() {
    const pid_t child = fork();
    if (child == 0) {
        ZBase::SetCrashAttr("who", "child", true);
        WriteToNull();
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::printf("child ended by signal %d\n", WIFSIGNALED(status) ? WTERMSIG(status) : 0);
    std::fflush(stdout);
    DivideByZero();
}

[[gnu::noipa]] void CrashAfterDump() {
    std::printf("%d\n", ZBase::CreateDump());
    std::printf("%d\n", ZBase::CreateDump());
    std::fflush(stdout);
    WriteToNull();
}

// Only one of the crashes is reported, and the process ends by it.
[[gnu::noipa]] void CrashOnManyThreads() {
    static std::atomic<int> sReady = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != 8; ++i) {
        threads.emplace_back([] {
            for (++sReady; sReady != 8;) {
            }
            *static_cast<volatile int*>(gNull) = 1;
            asm volatile("");
        });
    }
    for (std::thread& thread : threads) thread.join();
}

// A thread that ends the process while the crash of another is being reported. The dump is in the directory
// beside the configuration then.
[[gnu::noipa]] void CrashWhileExiting() {
    const std::filesystem::path config = std::getenv("ZENT_CRASH_CONFIG_FILE");
    const std::filesystem::path dumps = config.parent_path() / "dumps";
    std::thread([] { WriteToNull(); }).detach();
    while (!gHeapIsForbidden) {
    }
    gHeapIsForbidden = false;
    while (std::filesystem::is_empty(dumps)) usleep(1000);
    std::exit(0);
}

void CreateDumpsOnManyThreads() {
    std::atomic<int> written = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != 10; ++i) threads.emplace_back([&] { written += ZBase::CreateDump(); });
    for (std::thread& thread : threads) thread.join();
    std::printf("%d\n%d\n", written.load(), ZBase::CreateDump());
}

// The first call hangs with its server until the others have been refused.
void CreateDumpsAtOnce() {
    static std::atomic<int> sRefused = 0;
    std::atomic<int> written = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != 10; ++i) {
        threads.emplace_back([&] {
            if (ZBase::CreateDump()) {
                ++written;
            } else if (++sRefused == 9) {
                std::puts("nine are refused");
                std::fflush(stdout);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    std::printf("%d is written\n", written.load());
}

// The crash signal comes from another process.
[[gnu::noipa]] void WaitBesideADump() {
    std::thread([] { ZBase::CreateDump(); }).detach();
    for (;;) pause();
}

// No file may be written for a while.
[[gnu::noipa]] void FailToDump() {
    rlimit usual{};
    getrlimit(RLIMIT_FSIZE, &usual);
    const rlimit none{0, usual.rlim_max};
    setrlimit(RLIMIT_FSIZE, &none);
    const bool written = ZBase::CreateDump();
    setrlimit(RLIMIT_FSIZE, &usual);
    std::printf("%d %d\n", written, ZBase::CreateDump());
    std::fflush(stdout);
    setrlimit(RLIMIT_FSIZE, &none);
    WriteToNull();
}

// Prints the lowest free descriptor before and after some dumps.
void CountDescriptors() {
    for (int i = 0; i != 2; ++i) {
        const int descriptor = open("/dev/null", O_RDONLY);
        std::printf("%d ", descriptor);
        close(descriptor);
        for (int k = 0; k != 3; ++k) ZBase::CreateDump();
    }
}

void SetKeysLate() {
    const bool results[] = {ZBase::SetCrashAttr("kept", "1", false), ZBase::SetCrashAttr("kept", "2", false),
                            ZBase::SetCrashAttr("replaced", "1", false),
                            ZBase::SetCrashAttr("replaced", "2", true),
                            ZBase::SetCrashAttr("of file", "late", false)};
    for (const bool result : results) std::printf("%d", result);
    std::fflush(stdout);
    WriteToNull();
}

// Prints how much of an alternate stack of the library's size a child's crash takes.
void MeasureCrashStack(void (*crash)()) {
    constexpr std::size_t kSize = 65536;
    constexpr char kUntouched = '\x5A';
    char* const place =
        static_cast<char*>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::memset(place, kUntouched, kSize);
    const pid_t child = fork();
    if (child == 0) {
        stack_t stack{};
        stack.ss_sp = place;
        stack.ss_size = kSize;
        if (sigaltstack(&stack, nullptr) != 0) _exit(94);
        crash();
    }
    int status = 0;
    waitpid(child, &status, 0);
    std::size_t untouched = 0;
    while (untouched != kSize && place[untouched] == kUntouched) ++untouched;
    std::printf("%zu\n", kSize - untouched);
}

void CatchFault() {
    ZBase::SetExceptionTranslator();
    try {
        *static_cast<volatile int*>(gNull) = 1;
        asm volatile("");
    } catch (const ZBase::StructuredException&) {
    }
    _exit(0);
}

[[gnu::noipa]] void BeSignalled() {
    kill(getpid(), SIGSEGV);
    pause();
}

int Run(const std::string& kind) {
    const std::map<std::string, void (*)()> kinds = {
        {"null", WriteToNull},
        {"mapped", WriteToNullBesideAMappedFile},
        {"divide", DivideByZero},
        {"abort", Abort},
        {"throw", ThrowUncaught},
        {"pure", CallPureVirtual},
        {"overflow", ExhaustStack},
        {"large-overflow", ExhaustStackByLargeFrames},
        {"large-thread-overflow",
         [] {
             CrashOnThread(
                 [] {
                     MapBelowStack();
                     ExhaustStackByLargeFrames();
                 },
                 true);
         }},
        {"thread-overflow", [] { CrashOnThread(ExhaustStack, true); }},
        {"bare-thread-overflow", [] { CrashOnThread(ExhaustStack, false); }},
        {"jump", JumpNowhere},
        {"illegal", RunIllegalInstruction},
        {"breakpoint", HitBreakpoint},
        {"thread", [] { CrashOnThread(WriteToNull, false); }},
        {"threads", CrashOnManyThreads},
        {"deep-stacks", CrashBesideDeepStacks},
        {"fork", CrashInChildThenInParent},
        {"dump-first", CrashAfterDump},
        {"exit", [] { sCrashesAtExit.mArmed = true; }},
        {"while-exiting", CrashWhileExiting},
        {"malloc", CrashInMalloc},
        {"heap-held", CrashWhileAnotherHoldsTheHeap},
        {"no-memory", CrashWithoutMemory},
        {"no-descriptors", CrashWithoutDescriptors},
        {"signal", BeSignalled},
        {"dump", [] { std::printf("%d\n", ZBase::CreateDump()); }},
        {"dumps", CreateDumpsOnManyThreads},
        {"dumps-at-once", CreateDumpsAtOnce},
        {"dump-beside", WaitBesideADump},
        {"failed-dump", FailToDump},
        {"descriptors", CountDescriptors},
        {"no-processes",
         [] {
             const rlimit none{0, 0};
             if (setrlimit(RLIMIT_NPROC, &none) == 0) CountDescriptors();
             std::fflush(stdout);
             WriteToNull();
         }},
        {"late-keys", SetKeysLate},
        {"late-customer",
         [] {
             ZBase::SetCrashAttr("customer_dsi", "1", true);
             ZBase::SetCrashAttr("customer_dsi", "0", true);
             WriteToNull();
         }},
        {"moved",
         [] {
             if (chdir("/") == 0) WriteToNull();
         }},
        {"translated-overflow",
         [] {
             ZBase::SetExceptionTranslator();
             ExhaustStack();
         }},
        {"stack-of-null", [] { MeasureCrashStack(WriteToNull); }},
        {"stack-of-overflow", [] { MeasureCrashStack(ExhaustStack); }},
        {"stack-of-malloc", [] { MeasureCrashStack(CrashInMalloc); }},
        {"stack-of-abort", [] { MeasureCrashStack(Abort); }},
        {"stack-of-fault", [] { MeasureCrashStack(CatchFault); }},
        {"none", [] {}},
    };
    const auto found = kinds.find(kind);
    if (found == kinds.end()) return 97;
    found->second();
    return 0;
}

// What the test requests of the process as a whole.
void ArrangeProcess() {
    // The dump reader shows no more than 1024 frames.
    const rlimit stack{1 << 20, 1 << 20};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, stack.rlim_cur);
    if (setrlimit(RLIMIT_STACK, &stack) != 0 || pthread_setattr_default_np(&attributes) != 0) _exit(94);
    if (std::getenv("PROBE_CORES") != nullptr) {
        rlimit limit{};
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_CORE, &limit) != 0) _exit(94);
    }
    const char* folder = std::getenv("PROBE_FOLDER");
    if (folder != nullptr && chdir(folder) != 0) _exit(94);
    if (const char* user = std::getenv("PROBE_USER")) {
        if (setuid(static_cast<uid_t>(std::atoi(user))) != 0) _exit(94);
    }
    signal(SIGCHLD, std::getenv("PROBE_IGNORE_CHILDREN") != nullptr ? SIG_IGN : SIG_DFL);
    if (std::getenv("PROBE_HOST_HANDLER") != nullptr) signal(SIGSEGV, [](int) { _exit(93); });
}

// A second installation in the same process.
void InstallAgain() {
    const char* config = std::getenv("PROBE_SECOND_CONFIG");
    if (config == nullptr) return;
    setenv("ZENT_CRASH_CONFIG_FILE", config, 1);
    std::printf("%d\n", ZBase::InstallCrashHandler());
    std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
    ArrangeProcess();
    if (std::strcmp(argv[1], "unhandled") == 0) WriteToNull();
    for (int i = 2; i + 1 < argc; i += 2) ZBase::SetCrashAttr(argv[i], argv[i + 1], true);
    if (!ZBase::InstallCrashHandler()) return 96;
    InstallAgain();
    return Run(argv[1]);
}
