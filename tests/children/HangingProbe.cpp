// HangingProbe WHAT FILE: hangs with the lock of the heap or of the loader held, or with none, and writes the
// stacks of all threads to the file; for "signal" it installs the crash handler instead and sends itself
// SIGQUIT. Its heap has one lock, which is never released.

#include <Base/ZBase.h>

#include <dlfcn.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void __libc_free(void* block);

namespace {

pthread_mutex_t gHeap = PTHREAD_MUTEX_INITIALIZER;
std::atomic<int> gHanging{0};

struct HeapGuard {
    HeapGuard() { pthread_mutex_lock(&gHeap); }
    ~HeapGuard() { pthread_mutex_unlock(&gHeap); }
};

[[gnu::noinline]] void WaitForEver() {
    ++gHanging;
    for (;;) pause();
}

}  // namespace

extern "C" void* malloc(std::size_t size) {
    const HeapGuard guard;
    return __libc_malloc(size);
}
extern "C" void* calloc(std::size_t count, std::size_t size) {
    const HeapGuard guard;
    return __libc_calloc(count, size);
}
extern "C" void* realloc(void* block, std::size_t size) {
    const HeapGuard guard;
    return __libc_realloc(block, size);
}
extern "C" void free(void* block) {
    const HeapGuard guard;
    __libc_free(block);
}

void StayInTheLoader() {
    WaitForEver();
}

extern "C" {

[[gnu::noinline]] void StayInTheHeap() {
    const HeapGuard guard;
    WaitForEver();
}

[[gnu::noinline]] void WaitInAQueue() {
    pthread_setname_np(pthread_self(), "in a \"queue\"\n");
    WaitForEver();
}

[[gnu::noinline]] void TakeNoSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
    WaitForEver();
}

[[gnu::noinline]] void GoOnRunning() {
    ++gHanging;
    for (;;) asm volatile("");
}
}

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    alarm(100);
    const std::string what = argv[1];
    // Without crash reporting it installs no handler, and the signal is handled all the same.
    std::signal(SIGQUIT, SIG_DFL);  // a shell lets programs in the background ignore it
    if (what == "signal" || what == "child") ZBase::InstallCrashHandler();
    if (what == "child") {
        const pid_t child = fork();
        if (child == 0) {
            raise(SIGQUIT);
            _exit(0);
        }
        int status = 0;
        waitpid(child, &status, 0);
        std::printf("%s\n", WIFSIGNALED(status) && WTERMSIG(status) == SIGQUIT ? "by its signal" : "goes on");
        return 0;
    }
    std::thread(WaitInAQueue).detach();
    std::thread(TakeNoSignals).detach();
    std::thread(GoOnRunning).detach();
    int threads = 3;
    const auto wait = [&threads] {
        while (gHanging != threads) usleep(1000);
    };
    const std::string module = std::string(argv[0], std::strrchr(argv[0], '/')) + "/libBlockingStart.so";
    if (what != "none") {
        std::thread([&module] {
            if (dlopen(module.c_str(), RTLD_NOW) == nullptr) _exit(3);
        }).detach();
        ++threads;
        wait();
    }
    if (what == "heap" || what == "signal") {
        std::thread(StayInTheHeap).detach();
        ++threads;
    }
    wait();
    if (what == "signal") {
        kill(getpid(), SIGQUIT);
        WaitForEver();
    }
    _exit(ZBase::DumpAllStacks(argv[2]) ? 0 : 1);
}
