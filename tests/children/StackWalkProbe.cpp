// Counts what a walk asks of the heap and of locks, in the ordinary way and inside a signal handler.

#include <Base/diagnostics/DbgHelpBuilder.h>
#include <dlfcn.h>
#include <link.h>
#include <pthread.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <thread>

namespace {

std::atomic<bool> gCounting{false};
std::atomic<int> gAllocations{0};
std::atomic<int> gLocks{0};

template <class Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

std::uint64_t gFound[40];

[[gnu::noinline]] void Walk() {
    gCounting = true;
    ZBase::gDbgHelpBuilder.DoStackWalk(gFound, 40, 0);
    gCounting = false;
}

[[gnu::noinline]] void Deep(int depth) {
    if (depth == 0)
        Walk();
    else
        Deep(depth - 1);
    asm volatile("" ::: "memory");
}

void Report(const char* what) {
    std::printf("%s %d %d\n", what, gAllocations.exchange(0), gLocks.exchange(0));
}

}  // namespace

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* malloc(std::size_t size) {
    gAllocations += gCounting;
    return __libc_malloc(size);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static const auto next = Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    gLocks += gCounting;
    return next(mutex);
}

extern "C" int dl_iterate_phdr(int (*callback)(dl_phdr_info*, std::size_t, void*), void* argument) {
    static const auto next =
        Next<int (*)(int (*)(dl_phdr_info*, std::size_t, void*), void*)>("dl_iterate_phdr");
    gLocks += gCounting;  // it takes the loader's
    return next(callback, argument);
}

int main() {
    Deep(10);
    Deep(30);
    Report("normal");
    std::signal(SIGUSR1, [](int) { Walk(); });
    std::raise(SIGUSR1);
    Report("signal");
    const std::uint64_t first = gFound[0];
    std::thread([] { Deep(10); }).join();
    std::printf("threads %s\n", gFound[0] == first ? "agree" : "differ");
}
