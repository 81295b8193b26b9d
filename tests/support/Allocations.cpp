#include "tests/support/Allocations.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr std::size_t kNone = static_cast<std::size_t>(-1);

std::atomic<std::size_t> gLiveBlocks{0};
thread_local std::size_t tCount = 0;
thread_local std::size_t tBytes = 0;
thread_local std::size_t tFailAt = kNone;
thread_local std::size_t tFailCount = 1;
thread_local bool tFailed = false;

struct Watch {
    const void* block = nullptr;
    std::size_t octets = 0;
    bool freed = false;
    unsigned char content[8] = {};
};
thread_local Watch tWatch;

void* Allocate(std::size_t size) {
    tBytes += size;
    const std::size_t number = tCount++;
    if (number >= tFailAt && number - tFailAt < tFailCount) {
        tFailed = true;
        return nullptr;
    }
    void* block = std::malloc(size == 0 ? 1 : size);
    if (block != nullptr) gLiveBlocks.fetch_add(1, std::memory_order_relaxed);
    return block;
}

void Free(void* block) {
    if (block == nullptr) return;
    if (block == tWatch.block && !tWatch.freed) {
        std::memcpy(tWatch.content, block, tWatch.octets);
        tWatch.freed = true;
    }
    gLiveBlocks.fetch_sub(1, std::memory_order_relaxed);
    std::free(block);
}

}  // namespace

// The sanitizers' allocators return null, as any other, for a size that is too large.
extern "C" [[gnu::visibility("default")]] const char* __asan_default_options() {
    return "allocator_may_return_null=1";
}
extern "C" [[gnu::visibility("default")]] const char* __tsan_default_options() {
    return "allocator_may_return_null=1";
}

void* operator new(std::size_t size) {
    if (void* block = Allocate(size)) return block;
    throw std::bad_alloc();
}
void* operator new[](std::size_t size) {
    return operator new(size);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return Allocate(size);
}
void operator delete(void* block) noexcept {
    Free(block);
}
void operator delete[](void* block) noexcept {
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    Free(block);
}
void operator delete(void* block, const std::nothrow_t&) noexcept {
    Free(block);
}
void operator delete[](void* block, const std::nothrow_t&) noexcept {
    Free(block);
}

namespace test {

std::size_t LiveBlocks() {
    return gLiveBlocks.load(std::memory_order_relaxed);
}

std::size_t AllocationCount() {
    return tCount;
}

std::size_t AllocatedBytes() {
    return tBytes;
}

FreedBlock::FreedBlock(const void* block, std::size_t octets) {
    tWatch = {block, std::min(octets, sizeof tWatch.content), false, {}};
}

FreedBlock::~FreedBlock() {
    tWatch = {};
}

bool FreedBlock::IsFreed() const {
    return tWatch.freed;
}

const unsigned char* FreedBlock::Octets() const {
    return tWatch.content;
}

FailingAllocation::FailingAllocation(std::size_t index, std::size_t count) {
    tFailed = false;
    tFailCount = count;
    tFailAt = tCount + index;
}

FailingAllocation::~FailingAllocation() {
    tFailAt = kNone;
}

bool FailingAllocation::HasFailed() const {
    return tFailed;
}

}  // namespace test
