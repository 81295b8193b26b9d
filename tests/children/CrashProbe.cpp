// CrashProbe KIND [KEY VALUE]...: sets crash keys, installs the crash handler and crashes in one of many
// ways. The configuration comes from the environment, as in any process. Each crash happens in a function of
// its own, which must be found on the stack.

#include <Base/ZBase.h>

#include <fcntl.h>
#include <malloc.h>
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
#include <map>
#include <string>
#include <thread>
#include <vector>

// The heap of this program ends it as soon as the crash has begun.

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* block);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);

static std::atomic<bool> gHeapIsForbidden = false;

[[maybe_unused]] static void CheckHeap() {
    if (gHeapIsForbidden) _exit(99);
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
extern "C" void* malloc(std::size_t size) {
    CheckHeap();
    return __libc_malloc(size);
}
extern "C" void free(void* block) {
    if (block == nullptr) return;
    CheckHeap();
    __libc_free(block);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    CheckHeap();
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, std::size_t size) {
    CheckHeap();
    return __libc_realloc(block, size);
}
#endif

// Not local to this file: the compiler must not know all that is derived from it.
class Pure {
public:
    Pure() { CallThroughBase(); }
    virtual ~Pure() = default;
    [[gnu::noipa]] void CallThroughBase() { Missing(); }
    virtual void Missing() = 0;
};
class Whole : public Pure {
    void Missing() override {}
};

namespace {

void* volatile gNull = nullptr;
volatile int gZero = 0;
volatile int gSink = 0;

[[gnu::noipa]] void WriteToNull() {
    gHeapIsForbidden = true;
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] void DivideByZero() {
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

[[gnu::noipa]] int Overflow(int depth) {
    volatile char frame[512];
    frame[0] = static_cast<char>(depth);
    const int result = depth < 0 ? 0 : Overflow(depth + 1) + frame[0];
    asm volatile("");
    return result;
}

[[gnu::noipa]] void JumpNowhere() {
    reinterpret_cast<void (*)()>(gNull)();
    asm volatile("");
}

[[gnu::noipa]] void RunIllegalInstruction() {
    asm volatile("ud2");
}

class CrashesAtExit {
public:
    bool mArmed = false;
    ~CrashesAtExit() {
        if (mArmed) WriteToNull();
    }
};
CrashesAtExit sCrashesAtExit;

// Several threads, so that the heap is locked at all.
void StartAnotherThread() {
    std::thread([] { pause(); }).detach();
}

// The next look for a free block follows a pointer that leads nowhere, with the heap's lock held.
[[gnu::noipa]] void CrashInMalloc() {
    StartAnotherThread();
    char* block = static_cast<char*>(std::malloc(5000));
    char* behind = static_cast<char*>(std::malloc(5000));
    char* freed = block;
    asm volatile("" : "+r"(freed));  // nobody sees that it is the same
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

// Stops a thread that uses the heap without end, again and again until it is stopped while it has the lock.
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

[[gnu::noipa]] void CrashOnThread(void (*crash)(), bool ownStack) {
    std::thread([=] {
        if (ownStack) ZBase::InstallCrashStack();
        crash();
    }).join();
}

// Both are reported.
[[gnu::noipa]] void CrashInChildThenInParent() {
    const pid_t child = fork();
    if (child == 0) WriteToNull();
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

// A thread that ends the process while the crash of another is being reported.
[[gnu::noipa]] void CrashWhileExiting() {
    std::thread([] { WriteToNull(); }).detach();
    while (!gHeapIsForbidden) {
    }
    usleep(20000);
    gHeapIsForbidden = false;
    std::exit(0);
}

void CreateDumpsOnManyThreads() {
    std::atomic<int> written = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i != 10; ++i) threads.emplace_back([&] { written += ZBase::CreateDump(); });
    for (std::thread& thread : threads) thread.join();
    std::printf("%d\n%d\n", written.load(), ZBase::CreateDump());
}

[[gnu::noipa]] void BeSignalled() {
    kill(getpid(), SIGSEGV);
    pause();
}

// Two threads catch their faults, and the third, without a translator, crashes.
[[gnu::noipa]] void CatchThenCrash() {
    int caught = 0;
    for (void (*fault)() : {+[] { *static_cast<volatile int*>(gNull) = 1; }, +[] { gSink = 1 / gZero; }}) {
        std::thread([&] {
            ZBase::SetExceptionTranslator();
            for (int i = 0; i != 100; ++i) {
                try {
                    fault();
                } catch (const ZBase::StructuredException&) {
                    ++caught;
                }
            }
        }).join();
    }
    std::fprintf(stderr, "caught %d\n", caught);
    CrashOnThread(WriteToNull, false);
}

int Run(const std::string& kind) {
    const std::map<std::string, void (*)()> kinds = {
        {"null", WriteToNull},
        {"divide", DivideByZero},
        {"abort", Abort},
        {"throw", ThrowUncaught},
        {"pure", CallPureVirtual},
        {"overflow", [] { gSink = Overflow(0); }},
        {"thread-overflow", [] { CrashOnThread([] { gSink = Overflow(0); }, true); }},
        {"bare-thread-overflow", [] { CrashOnThread([] { gSink = Overflow(0); }, false); }},
        {"jump", JumpNowhere},
        {"illegal", RunIllegalInstruction},
        {"thread", [] { CrashOnThread(WriteToNull, false); }},
        {"threads", CrashOnManyThreads},
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
        {"translator-first", CatchThenCrash},
        {"translator-last", CatchThenCrash},
        {"translated-overflow",
         [] {
             ZBase::SetExceptionTranslator();
             gSink = Overflow(0);
         }},
        {"none", [] {}},
    };
    const auto found = kinds.find(kind);
    if (found == kinds.end()) return 97;
    found->second();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (const char* folder = std::getenv("PROBE_CORE_FOLDER")) {
        rlimit limit{};
        getrlimit(RLIMIT_CORE, &limit);
        limit.rlim_cur = limit.rlim_max;
        if (setrlimit(RLIMIT_CORE, &limit) != 0 || chdir(folder) != 0) return 95;
    }
    if (std::strcmp(argv[1], "unhandled") == 0) WriteToNull();
    signal(SIGCHLD, std::getenv("PROBE_IGNORE_CHILDREN") != nullptr ? SIG_IGN : SIG_DFL);
    if (std::strcmp(argv[1], "translator-first") == 0) {
        std::thread([] { ZBase::SetExceptionTranslator(); }).join();
    }
    for (int i = 2; i + 1 < argc; i += 2) ZBase::SetCrashAttr(argv[i], argv[i + 1], true);
    if (!ZBase::InstallCrashHandler()) return 96;
    return Run(argv[1]);
}
