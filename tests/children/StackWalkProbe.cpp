// StackWalkProbe [sealed]: counts the heap and lock calls of a walk, in ordinary code and inside a signal
// handler. Sealed, its first walk runs where every system call but the most needed ones ends the process.

#include <Base/diagnostics/DbgHelpBuilder.h>
#include <dlfcn.h>
#include <link.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdio>
#include <iterator>
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

#define ALLOW(number) \
    BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, (number), 0, 1), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)

void Seal() {
    sock_filter allowed[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),  // the number of the call
                             ALLOW(SYS_write),
                             ALLOW(SYS_exit_group),
                             ALLOW(SYS_tgkill),  // and others that raise a signal
                             ALLOW(SYS_getpid),
                             ALLOW(SYS_gettid),
                             ALLOW(SYS_rt_sigprocmask),
                             ALLOW(SYS_rt_sigreturn),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS)};
    const sock_fprog program{std::size(allowed), allowed};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) _exit(1);
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) _exit(1);
}

void WalkSealed() {
    std::signal(SIGUSR1, [](int) { Walk(); });
    Seal();
    Deep(10);
    std::raise(SIGUSR1);
    const char text[] = "sealed\n";
    if (write(STDOUT_FILENO, text, sizeof text - 1) < 0) _exit(1);
    _exit(0);
}

}  // namespace

extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* __libc_calloc(std::size_t count, std::size_t size);
extern "C" void* __libc_realloc(void* block, std::size_t size);
extern "C" void* __libc_memalign(std::size_t alignment, std::size_t size);
extern "C" void __libc_free(void* block);

extern "C" void* malloc(std::size_t size) {
    gAllocations += gCounting;
    return __libc_malloc(size);
}

extern "C" void* calloc(std::size_t count, std::size_t size) {
    gAllocations += gCounting;
    return __libc_calloc(count, size);
}

extern "C" void* realloc(void* block, std::size_t size) {
    gAllocations += gCounting;
    return __libc_realloc(block, size);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
    gAllocations += gCounting;
    return __libc_memalign(alignment, size);
}

extern "C" void free(void* block) {
    gAllocations += gCounting;
    __libc_free(block);
}

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) {
    static const auto next = Next<int (*)(pthread_mutex_t*)>("pthread_mutex_lock");
    gLocks += gCounting;
    return next(mutex);
}

extern "C" int pthread_rwlock_rdlock(pthread_rwlock_t* lock) {
    static const auto next = Next<int (*)(pthread_rwlock_t*)>("pthread_rwlock_rdlock");
    gLocks += gCounting;
    return next(lock);
}

extern "C" int dl_iterate_phdr(int (*callback)(dl_phdr_info*, std::size_t, void*), void* argument) {
    static const auto next =
        Next<int (*)(int (*)(dl_phdr_info*, std::size_t, void*), void*)>("dl_iterate_phdr");
    gLocks += gCounting;  // it takes the loader's
    return next(callback, argument);
}

int main(int argc, char**) {
    if (argc > 1) WalkSealed();
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
