// The region allocators compared with their peers, in one process and one run. Every piece is written once,
// as a caller would. The memory of most rows is warm: the heap keeps freed blocks; the rows called "fresh"
// include their page faults. `table.py` turns the result into ratios.

#include <Base/ZBase.h>

#include <benchmark/benchmark.h>
#include <google/protobuf/arena.h>

#include <dlfcn.h>
#include <malloc.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <new>
#include <random>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kPieces = 1'000'000;
constexpr std::size_t kBlock = 4096;

// 8 to 64 bytes, the same for all.
const std::vector<std::uint32_t>& Sizes() {
    static const std::vector<std::uint32_t> sizes = [] {
        std::mt19937 random(1);
        std::vector<std::uint32_t> made(kPieces);
        for (auto& size : made) size = static_cast<std::uint32_t>(8 + random() % 57);
        return made;
    }();
    return sizes;
}

std::size_t Rounded(std::size_t size) {
    return (size + 7) & ~std::size_t{7};
}

void Touch(void* piece) {
    *static_cast<volatile std::uint64_t*>(piece) = 1;
}

// Enough for all pieces; touched before the measurement.
char* WarmMemory() {
    static char* const memory = [] {
        constexpr std::size_t size = kPieces * 72;
        return static_cast<char*>(std::memset(std::malloc(size), 1, size));
    }();
    return memory;
}

// The peers: each is made for one region, allocates pieces, and frees them all at its end.

class SingleThread {
public:
    explicit SingleThread(int initialBlocks = 1)
        : mpBuffer(ZBase::CreateBufferSingleThread(initialBlocks, 1, nullptr, kBlock, false)) {}
    ~SingleThread() { mpBuffer->Delete(); }
    void* Allocate(std::size_t size) { return mpBuffer->Allocate(size); }
    ZBase::Buffer& Get() { return *mpBuffer; }

private:
    ZBase::Buffer* mpBuffer;
};

class LockFree {
public:
    explicit LockFree(int initialBlocks = 1)
        : mpBuffer(ZBase::CreateBufferThreadSafe(initialBlocks, 1, nullptr, kBlock, false)) {}
    ~LockFree() { mpBuffer->Delete(); }
    void* Allocate(std::size_t size) { return mpBuffer->Allocate(size); }
    ZBase::Buffer& Get() { return *mpBuffer; }

private:
    ZBase::Buffer* mpBuffer;
};

// Through its interface, like the buffers.
class Monotonic {
public:
    void* Allocate(std::size_t size) { return mpResource->allocate(size, 8); }

private:
    std::pmr::monotonic_buffer_resource mResource{kBlock};
    std::pmr::memory_resource* volatile mpResource = &mResource;  // so that the compiler can't devirtualise
};

// Allocated on the heap, like the buffers.
class MonotonicOnHeap {
public:
    void* Allocate(std::size_t size) { return mpMonotonic->Allocate(size); }

private:
    std::unique_ptr<Monotonic> mpMonotonic = std::make_unique<Monotonic>();
};

class MonotonicUnderMutex {
public:
    void* Allocate(std::size_t size) {
        const std::lock_guard lock(mMutex);
        return mMonotonic.Allocate(size);
    }

private:
    std::mutex mMutex;
    Monotonic mMonotonic;
};

class ProtobufArena {
public:
    void* Allocate(std::size_t size) { return google::protobuf::Arena::CreateArray<char>(&mArena, size); }

private:
    google::protobuf::Arena mArena;
};

class Bump {
public:
    void* Allocate(std::size_t size) {
        char* const piece = mpNext;
        mpNext += Rounded(size);
        return piece;
    }

private:
    char* mpNext = WarmMemory();
};

class CasBump {
public:
    explicit CasBump(char* memory = WarmMemory()) : mNext(memory) {}
    void* Allocate(std::size_t size) {
        char* piece = mNext.load(std::memory_order_relaxed);
        while (!mNext.compare_exchange_weak(piece, piece + Rounded(size), std::memory_order_relaxed)) {
        }
        return piece;
    }

private:
    alignas(64) std::atomic<char*> mNext;
};

// The lower bound of a lock-free region: a heap block, and a compare-and-swap for each piece.
class CasBumpOnHeap {
public:
    void* Allocate(std::size_t size) { return mBump.Allocate(size); }

private:
    std::unique_ptr<char[]> mpBlock{new char[2 * kBlock]};
    CasBump mBump{mpBlock.get()};
};

// Allocators without regions free their pieces one by one.
class FreeingOneByOne {
public:
    FreeingOneByOne(void* (*allocate)(std::size_t), void (*free)(void*))
        : mpAllocate(allocate), mpFree(free) {
        mPieces.reserve(kPieces);
    }
    ~FreeingOneByOne() {
        for (void* piece : mPieces) mpFree(piece);
    }
    void* Allocate(std::size_t size) { return mPieces.emplace_back(mpAllocate(size)); }

private:
    void* (*mpAllocate)(std::size_t);
    void (*mpFree)(void*);
    std::vector<void*> mPieces;
};

class Malloc : public FreeingOneByOne {
public:
    Malloc() : FreeingOneByOne(std::malloc, std::free) {}
};

// Opened by dlopen: linked, it would replace malloc in the whole process.
class Mimalloc : public FreeingOneByOne {
public:
    Mimalloc() : FreeingOneByOne(Find<void*(std::size_t)>("mi_malloc"), Find<void(void*)>("mi_free")) {}

private:
    template <class Function>
    static Function* Find(const char* name) {
        static void* const library = dlopen("libmimalloc.so.2.0", RTLD_NOW | RTLD_LOCAL);
        if (library == nullptr) std::abort();
        return reinterpret_cast<Function*>(dlsym(library, name));
    }
};

enum class Memory { kWarm, kFresh };

// The heap keeps freed blocks, or returns larger ones to the system at once.
void SetHeap(Memory memory) {
    mallopt(M_MMAP_THRESHOLD, memory == Memory::kWarm ? 32 << 20 : 128 << 10);
    mallopt(M_TRIM_THRESHOLD, memory == Memory::kWarm ? 1 << 30 : 128 << 10);
    if (memory == Memory::kFresh) malloc_trim(0);
}

template <class Allocator, Memory kMemory = Memory::kWarm>
void Pieces(benchmark::State& state) {
    const std::vector<std::uint32_t>& sizes = Sizes();
    SetHeap(kMemory);
    for (auto _ : state) {
        Allocator allocator;
        for (const std::uint32_t size : sizes) Touch(allocator.Allocate(size));
    }
    SetHeap(Memory::kWarm);
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPieces));
}

// All pieces from several threads into one allocator; from their start to the last end.
template <class Allocator>
void Together(benchmark::State& state) {
    const auto threads = static_cast<std::size_t>(state.range(0));
    const std::vector<std::uint32_t>& sizes = Sizes();
    for (auto _ : state) {
        Allocator allocator;
        std::atomic<std::size_t> waiting{threads + 1};
        std::vector<std::jthread> workers;
        for (std::size_t worker = 0; worker != threads; ++worker)
            workers.emplace_back([&, worker] {
                --waiting;
                while (waiting != 0) std::this_thread::yield();
                const std::size_t end = kPieces / threads * (worker + 1);
                for (std::size_t i = end - kPieces / threads; i != end; ++i)
                    Touch(allocator.Allocate(sizes[i]));
            });
        while (waiting != 1) std::this_thread::yield();
        const auto start = std::chrono::steady_clock::now();
        --waiting;
        workers.clear();
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kPieces));
}

// A whole region, made and freed.
template <class Allocator>
void Region(benchmark::State& state) {
    const auto pieces = static_cast<std::size_t>(state.range(0));
    const std::vector<std::uint32_t>& sizes = Sizes();
    for (auto _ : state) {
        Allocator allocator;
        for (std::size_t i = 0; i != pieces; ++i) Touch(allocator.Allocate(sizes[i]));
    }
}

// Bytes held for each byte allocated, with 10 MB of pieces; no time.
template <class Allocator>
void Held(benchmark::State& state) {
    for (auto _ : state) {
        Allocator allocator;
        std::size_t asked = 0;
        for (std::size_t i = 0; asked < 10'000'000; ++i) {
            allocator.Allocate(Sizes()[i % kPieces]);
            asked += Sizes()[i % kPieces];
        }
        state.counters["held"] =
            static_cast<double>(allocator.Get().GetTotalBytes()) / static_cast<double>(asked);
    }
}

BENCHMARK(Pieces<SingleThread>)->Name("pieces/single_thread");
BENCHMARK(Pieces<LockFree>)->Name("pieces/lock_free");
BENCHMARK(Pieces<MonotonicUnderMutex>)->Name("pieces/monotonic_mutex");
BENCHMARK(Pieces<Monotonic>)->Name("pieces/monotonic");
BENCHMARK(Pieces<ProtobufArena>)->Name("pieces/arena");
BENCHMARK(Pieces<Malloc>)->Name("pieces/malloc");
BENCHMARK(Pieces<Mimalloc>)->Name("pieces/mimalloc");
BENCHMARK(Pieces<Bump>)->Name("pieces/bump");
BENCHMARK(Pieces<CasBump>)->Name("pieces/cas_bump");

BENCHMARK(Pieces<SingleThread, Memory::kFresh>)->Name("fresh/single_thread");
BENCHMARK(Pieces<LockFree, Memory::kFresh>)->Name("fresh/lock_free");
BENCHMARK(Pieces<Monotonic, Memory::kFresh>)->Name("fresh/monotonic");

BENCHMARK(Together<LockFree>)->Name("together/lock_free")->Arg(2)->Arg(4)->UseManualTime();
BENCHMARK(Together<CasBump>)->Name("together/cas_bump")->Arg(2)->Arg(4)->UseManualTime();
BENCHMARK(Together<MonotonicUnderMutex>)->Name("together/monotonic_mutex")->Arg(2)->Arg(4)->UseManualTime();

BENCHMARK(Region<SingleThread>)->Name("region/single_thread")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Region<LockFree>)->Name("region/lock_free")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Region<CasBumpOnHeap>)->Name("region/cas_bump_heap")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Region<Monotonic>)->Name("region/monotonic")->Arg(1)->Arg(10)->Arg(100);
BENCHMARK(Region<MonotonicOnHeap>)->Name("region/monotonic_heap")->Arg(1)->Arg(10)->Arg(100);

BENCHMARK(Held<SingleThread>)->Name("held/single_thread")->Iterations(1);
BENCHMARK(Held<LockFree>)->Name("held/lock_free")->Iterations(1);

}  // namespace

int main(int count, char** arguments) {
    // A second thread exists all the time, as in a server: the heap is faster in a process that never had
    // one.
    const std::jthread other([](const std::stop_token& stop) {
        while (!stop.stop_requested()) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    });
    mallopt(M_ARENA_MAX, 1);  // so that memory freed by one thread is warm for another
    SetHeap(Memory::kWarm);
    WarmMemory();
    benchmark::Initialize(&count, arguments);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
