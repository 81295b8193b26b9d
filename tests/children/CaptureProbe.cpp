// CaptureProbe WHAT: captures stacks where locks are held, signals blocked or processes forked, and prints
// the result. It has a heap with one lock of its own, whose functions are not adjacent to the C library's,
// and counts the signals that the library sends to threads.

#include <Base/ZBase.h>

#include <dlfcn.h>
#include <poll.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void __libc_free(void* block);

namespace {

pthread_mutex_t gHeap = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> gSignals{0};
std::atomic<int> gListings{0};
using SystemCall = long (*)(long, ...);

}  // namespace

extern "C" [[gnu::noinline]] void* malloc(std::size_t size) {
    pthread_mutex_lock(&gHeap);
    void* const block = __libc_malloc(size);
    pthread_mutex_unlock(&gHeap);
    return block;
}

extern "C" [[gnu::noinline]] void free(void* block) {
    pthread_mutex_lock(&gHeap);
    __libc_free(block);
    pthread_mutex_unlock(&gHeap);
}

extern "C" int open(const char* path, int flags, ...) {
    static const auto next = reinterpret_cast<int (*)(const char*, int, ...)>(dlsym(RTLD_NEXT, "open"));
    va_list list;
    va_start(list, flags);
    const unsigned int mode = va_arg(list, unsigned int);
    va_end(list);
    gListings += std::strcmp(path, "/proc/self/maps") == 0;
    return next(path, flags, mode);
}

extern "C" long syscall(long number, ...) noexcept {
    static const auto next = reinterpret_cast<SystemCall>(dlsym(RTLD_NEXT, "syscall"));
    va_list list;
    va_start(list, number);
    std::array<long, 6> arguments{};
    for (long& argument : arguments) argument = va_arg(list, long);
    va_end(list);
    gSignals += number == SYS_rt_tgsigqueueinfo;
    return next(number, arguments[0], arguments[1], arguments[2], arguments[3], arguments[4], arguments[5]);
}

namespace {

constexpr int kDepth = 9;  // so that there are lines

template <class Operation>
[[gnu::noinline]] void AtDepth(int depth, const Operation& operation) {
    if (depth != 0)
        AtDepth(depth - 1, operation);
    else
        operation();
    asm volatile("" ::: "memory");
}

unsigned int CountLines(void* thread) {
    ZBase::CallStack* const stack = ZBase::CreateCallStack(thread);
    const unsigned int count = stack->GetLineCount();
    stack->Delete();
    return count;
}

void* Handle(std::thread& thread) {
    return reinterpret_cast<void*>(thread.native_handle());
}

/// Captures a thread that does `operation` over and over; prints whether each capture had lines.
void CaptureInTheMiddleOf(const std::function<void()>& operation, int rounds) {
    std::atomic<bool> stop{false};
    std::atomic<bool> isThere{false};
    std::thread thread([&] {
        AtDepth(kDepth, [&] {
            isThere = true;
            while (!stop) operation();
        });
    });
    while (!isThere) usleep(100);
    int empty = 0;
    for (int round = 0; round != rounds; ++round) empty += CountLines(Handle(thread)) == 0;
    stop = true;
    thread.join();
    std::printf("%d empty\n", empty);
}

void Fork() {
    const pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
}

void UseHeap() {
    void* volatile blocks[4];
    for (auto& block : blocks) block = std::malloc(300);
    for (auto& block : blocks) std::free(block);
}

void LookUp() {
    static ZBase::AddrToLine resolver;
    std::string module, symbol, file, line;
    resolver.Fetch(reinterpret_cast<std::uint64_t>(&LookUp), module, symbol, file, line);
    ZBase::CreateCallStack(nullptr)->Delete();
}

// Waits in the system calls that threads are in most often.
void CaptureWaiting() {
    int ends[2];
    int sockets[2];
    if (pipe(ends) != 0 || socketpair(AF_UNIX, SOCK_STREAM, 0, sockets) != 0) std::abort();
    std::mutex mutex;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    pthread_mutex_t conditionMutex = PTHREAD_MUTEX_INITIALIZER;
    sem_t semaphore;
    sem_init(&semaphore, 0, 0);
    char octet = 0;
    bool isReady = false;
    const pid_t child = fork();
    if (child == 0) {
        pause();
        _exit(0);
    }
    mutex.lock();
    std::vector<std::function<void()>> waits = {
        [&] { static_cast<void>(!read(ends[0], &octet, 1)); },
        [&] { static_cast<void>(!recv(sockets[0], &octet, 1, 0)); },
        [&] { std::scoped_lock lock(mutex); },
        [&] {
            pthread_mutex_lock(&conditionMutex);
            while (!isReady) pthread_cond_wait(&condition, &conditionMutex);
            pthread_mutex_unlock(&conditionMutex);
        },
        [&] { sem_wait(&semaphore); },
        [&] { waitpid(child, nullptr, 0); },
        [&] {
            pollfd file{ends[0], POLLIN, 0};
            poll(&file, 1, 5000);
        },
    };
    std::vector<std::thread> threads;
    for (const auto& wait : waits) threads.emplace_back([&wait] { AtDepth(kDepth, wait); });
    usleep(100'000);
    CountLines(nullptr);
    for (std::thread& thread : threads) {
        const int before = gSignals;
        const unsigned int lines = CountLines(Handle(thread));
        std::printf("%s, stops %s\n", lines == 0 ? "none" : "lines", gSignals - before <= 2 ? "few" : "many");
    }
    if (write(ends[1], "xx", 2) != 2 || write(sockets[1], "x", 1) != 1) std::abort();
    mutex.unlock();
    pthread_mutex_lock(&conditionMutex);
    isReady = true;
    pthread_cond_signal(&condition);
    pthread_mutex_unlock(&conditionMutex);
    sem_post(&semaphore);
    kill(child, SIGKILL);
    for (std::thread& thread : threads) thread.join();
}

// Threads that block all signals, or wait for all of them.
void CaptureMasked() {
    std::atomic<bool> stop{false};
    std::atomic<int> handed{0};
    std::atomic<int> pending{0};
    std::atomic<int> ready{0};
    const auto run = [&](bool isWaiting) {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, nullptr);
        ++ready;
        AtDepth(kDepth, [&] {
            while (!stop) {
                const timespec moment{0, 3'000'000};
                if (!isWaiting)
                    usleep(1000);
                else
                    handed += sigtimedwait(&all, nullptr, &moment) > 0;
            }
        });
        sigset_t left;
        sigpending(&left);
        for (int number = 1; number < SIGRTMAX; ++number) pending += sigismember(&left, number) == 1;
    };
    std::thread blocking(run, false);
    std::thread waiting(run, true);
    while (ready != 2) usleep(100);
    usleep(10'000);
    const int before = gSignals;
    for (int round = 0; round != 100; ++round) {
        CountLines(Handle(blocking));
        CountLines(Handle(waiting));
    }
    stop = true;
    blocking.join();
    waiting.join();
    std::printf("%d sent, %d handed, %d pending\n", gSignals - before, handed.load(), pending.load());
}

/// Prints in how many of the children `isWell` is true before long.
void ForkOften(const std::function<bool()>& isWell) {
    constexpr int kChildren = 40;
    int good = 0;
    for (int i = 0; i != kChildren; ++i) {
        usleep(2000);
        const pid_t child = fork();
        if (child == 0) {
            alarm(20);
            _exit(isWell() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        good += status == 0;
    }
    std::printf("%d of %d\n", good, kChildren);
}

// A fork while other threads are inside diagnostics; each child uses all of it once.
void UseInChildren() {
    using namespace ZBase;
    std::atomic<bool> stop{false};
    CallStackLogger logger;
    RefCountCallStackTracer* const tracer = CreateRefCountCallStackTracer("Objects"_w, "/dev/null");
    std::thread capturing([&] {
        while (!stop) CountLines(nullptr);
    });
    std::thread stopping([&] {
        while (!stop) CountLines(Handle(capturing));
    });
    std::thread logging([&] {
        for (int i = 0; !stop; ++i) {
            logger.AppendCallStack(0, 0);
            if (i % 5000 == 0) logger.RemoveDuplicates();
        }
    });
    std::thread tracing([&] {
        for (std::uintptr_t i = 0; !stop; ++i)
            tracer->RecordRefCount(reinterpret_cast<void*>(i % 8 * 16), i % 3 != 0);
    });
    ForkOften([&] {
        const unsigned int lines = CountLines(nullptr);
        logger.AppendCallStack(0, 0);
        tracer->RecordRefCount(&stop, 1);
        ModuleInfo().Initialize();
        std::thread other([] { usleep(50'000); });
        CountLines(Handle(other));
        other.join();
        return lines > 3;
    });
    stop = true;
    for (std::thread* thread : {&capturing, &stopping, &logging, &tracing}) thread->join();
}

// A fork while other threads set flags and keys, each of which is new.
void SetInChildren() {
    std::atomic<bool> stop{false};
    const auto name = [](int i) { return std::to_string(i) + " has a name that takes some heap"; };
    std::thread flags([&] {
        for (int i = 0; !stop; ++i)
            ZBase::SetFeatureEnabled(ZBase::UTF8ToWideChar(name(i).c_str(), false).c_str(), true);
    });
    std::thread keys([&] {
        for (int i = 0; !stop; ++i) ZBase::SetCrashAttr(name(i).c_str(), "value", true);
    });
    ForkOften([] {
        ZBase::SetFeatureEnabled(ZBase::UTF8ToWideChar("flag of the child", false).c_str(), false);
        return ZBase::SetCrashAttr("key of the child", "value", false);
    });
    stop = true;
    flags.join();
    keys.join();
}

// A thread whose cancellation is pending captures, looks up, and is cancelled behind both. Then another does.
void CaptureCancelled() {
    static std::atomic<unsigned int> sLines{0};
    static std::atomic<bool> sStop{false};
    static std::thread sOther([] {
        while (!sStop) usleep(1000);
    });
    const auto capture = [](void*) -> void* {
        pthread_cancel(pthread_self());
        for (void* thread : {Handle(sOther), static_cast<void*>(nullptr)}) sLines += CountLines(thread) != 0;
        LookUp();
        pthread_testcancel();
        return nullptr;
    };
    pthread_t thread{};
    void* end = nullptr;
    pthread_create(&thread, nullptr, capture, nullptr);
    pthread_join(thread, &end);
    std::printf("%u captured, %s, ", sLines.load(), end == PTHREAD_CANCELED ? "cancelled" : "not cancelled");
    std::printf("%s\n", CountLines(Handle(sOther)) == 0 ? "none" : "lines");
    sStop = true;
    sOther.join();
}

// A process with so many mappings takes ten milliseconds and more to list them.
void CaptureWithManyMappings() {
    const int file = open("/proc/self/exe", 0);
    for (int i = 0; i != 20'000; ++i)
        mmap(nullptr, 4096, i % 2 == 0 ? PROT_READ : PROT_NONE, MAP_PRIVATE, file, 0);
    gListings = 0;
    std::printf("%s", CountLines(nullptr) > 3 ? "lines" : "none");
    LookUp();
    std::printf(", %d listings\n", gListings.load());
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    const std::string what = argv[1];
    if (what == "setting")
        ZBase::SetCrashAttr("key", "value", true);  // its hooks are there, and run behind the heap's
    // The heap's own fork hooks, as real heaps have them.
    pthread_atfork([] { pthread_mutex_lock(&gHeap); }, [] { pthread_mutex_unlock(&gHeap); },
                   [] { pthread_mutex_init(&gHeap, nullptr); });
    alarm(100);
    if (what != "mappings") CountLines(nullptr);
    if (what == "forking") CaptureInTheMiddleOf(Fork, 100);
    if (what == "heap") CaptureInTheMiddleOf(UseHeap, 300);
    if (what == "looking up") CaptureInTheMiddleOf(LookUp, 100);
    if (what == "waiting") CaptureWaiting();
    if (what == "masked") CaptureMasked();
    if (what == "children") UseInChildren();
    if (what == "setting") SetInChildren();
    if (what == "cancelled") CaptureCancelled();
    if (what == "mappings") CaptureWithManyMappings();
}
