#include "tests/growth/Holdings.h"

#include <dlfcn.h>
#include <malloc.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cstddef>

namespace {

std::atomic<long> sHeld = 0;
std::atomic<long> sPeak = 0;
std::atomic<long> sHanded = 0;

void Add(std::size_t size) {
    const long octets = static_cast<long>(size);
    const long held = sHeld.fetch_add(octets, std::memory_order_relaxed) + octets;
    sHanded.fetch_add(octets, std::memory_order_relaxed);
    long peak = sPeak.load(std::memory_order_relaxed);
    while (held > peak && !sPeak.compare_exchange_weak(peak, held, std::memory_order_relaxed)) {
    }
}

void Subtract(std::size_t size) {
    sHeld.fetch_sub(static_cast<long>(size), std::memory_order_relaxed);
}

void* Counted(void* block) {
    if (block != nullptr) Add(malloc_usable_size(block));
    return block;
}

template <class Function>
Function* Next(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

// ZBASE_COUNTED(result, name, parameters): a function of this program in front of that of the C library.
#define ZBASE_COUNTED(result, name, parameters)                                            \
    extern "C" [[gnu::visibility("default")]] result Counted_##name parameters asm(#name); \
    static decltype(&Counted_##name) Real_##name() noexcept {                              \
        static decltype(&Counted_##name) sReal = nullptr;                                  \
        if (sReal == nullptr) sReal = Next<std::remove_pointer_t<decltype(sReal)>>(#name); \
        return sReal;                                                                      \
    }                                                                                      \
    result Counted_##name parameters

ZBASE_COUNTED(void*, malloc, (std::size_t size)) {
    return Counted(Real_malloc()(size));
}

ZBASE_COUNTED(void*, calloc, (std::size_t count, std::size_t size)) {
    return Counted(Real_calloc()(count, size));
}

ZBASE_COUNTED(void*, realloc, (void* block, std::size_t size)) {
    const std::size_t before = block == nullptr ? 0 : malloc_usable_size(block);
    void* const moved = Real_realloc()(block, size);
    if (moved == nullptr && size != 0) return nullptr;
    // Where it can't stay, old and new are there at once.
    Counted(moved);
    Subtract(before);
    return moved;
}

ZBASE_COUNTED(int, posix_memalign, (void** block, std::size_t alignment, std::size_t size)) {
    const int failed = Real_posix_memalign()(block, alignment, size);
    if (failed == 0) Counted(*block);
    return failed;
}

ZBASE_COUNTED(void*, aligned_alloc, (std::size_t alignment, std::size_t size)) {
    return Counted(Real_aligned_alloc()(alignment, size));
}

ZBASE_COUNTED(void, free, (void* block)) {
    if (block != nullptr) Subtract(malloc_usable_size(block));
    Real_free()(block);
}

ZBASE_COUNTED(void*, mmap, (void* place, std::size_t size, int rights, int flags, int file, off_t offset)) {
    void* const start = Real_mmap()(place, size, rights, flags, file, offset);
    if (start != MAP_FAILED) Add(size);
    return start;
}

ZBASE_COUNTED(int, munmap, (void* start, std::size_t size)) {
    const int failed = Real_munmap()(start, size);
    if (failed == 0) Subtract(size);
    return failed;
}

namespace test {

HoldingsWatch::HoldingsWatch() : mStart(sHeld) {
    sPeak = mStart;
    sHanded = 0;
}

double HoldingsWatch::Peak() const {
    return static_cast<double>(sPeak - mStart);
}

double HoldingsWatch::Handed() const {
    return static_cast<double>(sHanded);
}

}  // namespace test
