// YieldingProcess, loaded in front of a program by LD_PRELOAD: where a thread takes or leaves a lock, has
// memory from the heap or asks the system for something, it gives its processor up now and then, before or
// after it, so that others come in between. ZBASE_YIELD=N: at one of N such moments, 16 without it.
// ZBASE_YIELD_SEED chooses which.
#include <dlfcn.h>
#include <sched.h>
#include <time.h>
#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

std::uint64_t Number(const char* variable, std::uint64_t otherwise) {
    const char* const text = std::getenv(variable);
    return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

std::uint64_t gMoments = 0;  // 0 until it is loaded, and never yields
std::uint64_t gSeed = 0;

[[gnu::constructor]] void Start() {
    gSeed = Number("ZBASE_YIELD_SEED", 1);
    gMoments = Number("ZBASE_YIELD", 16);
}

// The steps of a generator whose results do not repeat (splitmix64), for each thread its own.
std::uint64_t Random() {
    static thread_local std::uint64_t tState = 0;
    if (tState == 0) tState = gSeed ^ reinterpret_cast<std::uintptr_t>(&tState);
    std::uint64_t number = tState += 0x9E3779B97F4A7C15;
    number = (number ^ (number >> 30)) * 0xBF58476D1CE4E5B9;
    number = (number ^ (number >> 27)) * 0x94D049BB133111EB;
    return number ^ (number >> 31);
}

// Mostly for a thread that is ready, sometimes for as long as others take for several steps.
void Yield() {
    if (gMoments == 0) return;
    const std::uint64_t random = Random();
    if (random % gMoments != 0) return;
    const int error = errno;
    const timespec pause{0, static_cast<long>(random >> 40) % 200'000};
    if ((random >> 32) % 8 != 0)
        sched_yield();
    else
        nanosleep(&pause, nullptr);
    errno = error;
}

template <class Result, class... Arguments>
struct Call {
    const char* name;
    std::atomic<void*> next{nullptr};

    Result operator()(Arguments... arguments) {
        void* function = next.load(std::memory_order_relaxed);
        if (function == nullptr) {
            function = dlsym(RTLD_NEXT, name);
            next.store(function, std::memory_order_relaxed);
        }
        const struct Around {
            Around() { Yield(); }
            ~Around() { Yield(); }
        } around;
        return reinterpret_cast<Result (*)(Arguments...)>(function)(arguments...);
    }
};

}  // namespace

// The symbols only: what the headers declare has more to it.
#define YIELDS(Symbol, Result, Parameters, Arguments, ...)                          \
    extern "C" Result Yielding_##Symbol Parameters asm(#Symbol);                    \
    extern "C" [[gnu::visibility("default")]] Result Yielding_##Symbol Parameters { \
        static constinit Call<Result, __VA_ARGS__> sCall{#Symbol};                  \
        return sCall Arguments;                                                     \
    }

YIELDS(pthread_mutex_lock, int, (void* lock), (lock), void*)
YIELDS(pthread_mutex_trylock, int, (void* lock), (lock), void*)
YIELDS(pthread_mutex_unlock, int, (void* lock), (lock), void*)
YIELDS(pthread_rwlock_rdlock, int, (void* lock), (lock), void*)
YIELDS(pthread_rwlock_wrlock, int, (void* lock), (lock), void*)
YIELDS(pthread_rwlock_unlock, int, (void* lock), (lock), void*)
YIELDS(pthread_sigmask, int, (int how, const void* set, void* old), (how, set, old), int, const void*, void*)
YIELDS(sigaction, int, (int signal, const void* action, void* old), (signal, action, old), int, const void*,
       void*)
YIELDS(mmap, void*, (void* place, std::size_t size, int rights, int flags, int file, long offset),
       (place, size, rights, flags, file, offset), void*, std::size_t, int, int, int, long)
YIELDS(munmap, int, (void* place, std::size_t size), (place, size), void*, std::size_t)
YIELDS(mprotect, int, (void* place, std::size_t size, int rights), (place, size, rights), void*, std::size_t,
       int)
YIELDS(open, int, (const char* path, int flags, unsigned int mode), (path, flags, mode), const char*, int,
       unsigned int)
YIELDS(close, int, (int file), (file), int)
YIELDS(read, long, (int file, void* room, std::size_t size), (file, room, size), int, void*, std::size_t)
YIELDS(write, long, (int file, const void* octets, std::size_t size), (file, octets, size), int, const void*,
       std::size_t)
YIELDS(_Znwm, void*, (std::size_t size), (size), std::size_t)
YIELDS(_ZdlPv, void, (void* block), (block), void*)
YIELDS(_ZdlPvm, void, (void* block, std::size_t size), (block, size), void*, std::size_t)
