// OverlapProbe MODE: calls that overlap on a buffer for one thread.
//   governor   a governor allocates from the buffer that asks it
//   contract   a contract does
//   ensure     a contract does, inside EnsureAvailable
//   noheap     the same, without memory for anything
//   threads    a second thread allocates while the first is inside
//   turns      two threads allocate one after the other
// Prints "done" at the end.

#include <Base/ZBase.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <thread>

namespace {

bool gHasHeap = true;

}  // namespace

// Not inlined: a compiler that puts one of a pair into its caller tells that it does not fit the other.
[[gnu::noinline]] void* operator new(std::size_t size) {
    void* const block = gHasHeap ? std::malloc(size) : nullptr;
    if (block == nullptr) throw std::bad_alloc();
    return block;
}
[[gnu::noinline]] void operator delete(void* block) noexcept {
    std::free(block);
}
[[gnu::noinline]] void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace {

using namespace ZBase;

Buffer* gBuffer = nullptr;

class HookedContract final : public MemoryContract {
public:
    void AddRef() override {}
    void Release() override {}
    unsigned int Request(unsigned int) override { return 0; }
    void Settle(unsigned int) override {}
    unsigned int RequestChunk(std::size_t, bool) override {
        const std::function<void()> call = std::move(hook);
        hook = nullptr;
        if (call) call();
        return 0;
    }
    void SettleChunk(std::size_t) override {}

    std::function<void()> hook;  // called once
};

void AllocateSome() {
    for (int i = 0; i != 10; ++i) gBuffer->Allocate(16);
}

void Run(const char* mode) {
    HookedContract contract;
    gBuffer = CreateBufferSingleThread(0, 1, &contract, 4096, false);
    const auto is = [mode](const char* name) { return std::strcmp(mode, name) == 0; };
    if (is("governor")) {
        static bool asked = false;
        static MemGovernorProxy governor;
        governor.mRequest = [](std::size_t) {
            if (!asked) {
                asked = true;
                gBuffer->Allocate(16);
            }
            return true;
        };
        governor.mRelease = [](std::size_t) {};
        RegisterMemGovernor(&governor);
        gBuffer->Allocate(16);
    } else if (is("contract")) {
        contract.hook = [] { gBuffer->Allocate(16); };
        gBuffer->Allocate(16);
    } else if (is("ensure")) {
        contract.hook = [] { gBuffer->EnsureAvailable(16); };
        gBuffer->EnsureAvailable(16);
    } else if (is("noheap")) {
        contract.hook = [] {
            gHasHeap = false;
            gBuffer->EnsureAvailable(16);
            gHasHeap = true;
        };
        gBuffer->EnsureAvailable(16);
    } else if (is("threads")) {
        contract.hook = [] { std::thread(AllocateSome).join(); };
        gBuffer->Allocate(16);
    } else if (is("turns")) {
        for (int i = 0; i != 5; ++i) {
            std::thread(AllocateSome).join();
            AllocateSome();
        }
    }
}

}  // namespace

int main(int, char** arguments) {
    Run(arguments[1]);
    std::printf("done %zu\n", gBuffer->GetUsedBytes());
}
