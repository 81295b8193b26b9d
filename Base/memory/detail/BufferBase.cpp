#include <Base/memory/detail/BufferBase.h>

#include <Base/frame/WideLiteral.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/memory/BufferFigures.h>
#include <Base/memory/VirtualMemory.h>
#include <Base/memory/detail/MemoryFailures.h>
#include <Base/memory/detail/Poison.h>
#include <Base/memory/detail/budgets/MemGovernors.h>
#include <Base/platform/os/memory/Pages.h>

#include <algorithm>
#include <exception>
#include <limits>
#include <new>
#include <utility>

namespace ZBase {

namespace {

constexpr std::size_t kSmallestBlock = 256;
constexpr std::size_t kChunkAlignment = 16;  // as the heap's
constexpr std::size_t kLargestSize = std::numeric_limits<std::size_t>::max();

std::atomic<std::uint64_t> sOnBoundaryAllocTotal{0};
std::atomic<std::size_t> sHeapChunks{0};
std::atomic<std::size_t> sHeapBytes{0};

// `unit` is a power of two.
std::size_t RoundUp(std::size_t size, std::size_t unit) {
    if (size > kLargestSize - (unit - 1)) throw BadAllocation();
    return (size + unit - 1) & ~(unit - 1);
}

std::size_t RoundBlockSize(std::size_t size) {
    if (size == 0) size = Buffer::sDefaultBlockSize;
    if (size < kSmallestBlock) return kSmallestBlock;
    // A block size that no memory can hold is kept, and fails when its chunk is acquired.
    if (size > kLargestSize - (kSmallestBlock - 1)) return kLargestSize - (kSmallestBlock - 1);
    return RoundUp(size, kSmallestBlock);
}

}  // namespace

BufferBase::Room BufferBase::RoomForFirstChunk(int initialBlocks, MemoryContract* contract,
                                               std::size_t blockSize, bool onBoundary) {
    if (initialBlocks < 1 || contract != nullptr || onBoundary || !gMemGovernors.empty()) return {0};
    const std::size_t block = RoundBlockSize(blockSize);
    const auto count = static_cast<std::size_t>(initialBlocks);
    // Both factors are at most a page, so the product does not wrap.
    const bool small = block <= sPageSize && count <= sPageSize && block * count <= sPageSize;
    return {small ? block * count : 0};
}

void* BufferBase::operator new(std::size_t objectSize, Room room) {
    return ::operator new(objectSize + (room.size == 0 ? 0 : room.size + kChunkAlignment));
}

void BufferBase::operator delete(void* memory, Room) noexcept {
    ::operator delete(memory);
}

void BufferBase::operator delete(void* memory) noexcept {
    ::operator delete(memory);
}

Chunk BufferBase::AdoptRoom(void* objectEnd, Room room) {
    auto* const end = static_cast<char*>(objectEnd);
    // A page-aligned chunk of a page size would contain a whole page.
    const bool onPage = (reinterpret_cast<std::uintptr_t>(end) & (sPageSize - 1)) == 0;
    mAdopted.start = onPage ? end + kChunkAlignment : end;
    mAdopted.end = mAdopted.start + room.size;
    Poison(mAdopted.start, room.size);
    mTotalGoverned.store(room.size, std::memory_order_relaxed);
    return mAdopted;
}

std::size_t Buffer::GetOnBoundaryAllocTotal() {
    return sOnBoundaryAllocTotal;
}

BufferFigures GetBufferFigures() noexcept {
    return {sHeapChunks.load(std::memory_order_relaxed), sHeapBytes.load(std::memory_order_relaxed),
            sOnBoundaryAllocTotal.load(std::memory_order_relaxed)};
}

BufferBase::BufferBase(std::size_t blockSize, bool onBoundary, MemoryContract* contract)
    : mBlockSize(RoundBlockSize(blockSize)), mContract(contract), mOnBoundary(onBoundary) {}

BufferBase::~BufferBase() noexcept(false) {
    try {
        CreditGovernors();
    } catch (...) {
        // The pending exception, such as a refused first chunk, is the one to report.
        if (std::uncaught_exceptions() == 0) throw;
    }
}

void BufferBase::Delete() {
    delete this;
}

void BufferBase::SetLimit(std::int64_t limit) {
    mLimit = limit < 0 ? 0 : static_cast<std::size_t>(limit);
}

void BufferBase::DetachFromGovernors() {
    mGovernors.Close();
    if (mGovernors.IsEmpty()) CreditGovernors();
}

void BufferBase::CreditGovernors() {
    if (!mCredited.exchange(true)) CreditMemGovernors(mTotalGoverned);
}

std::size_t BufferBase::BytesOfBlocks(std::size_t count) const {
    const bool small = (count | mBlockSize) >> 31 == 0;  // saves the division
    if (!small && count > kLargestChunk / mBlockSize) throw BadAllocation();
    return count * mBlockSize;
}

std::size_t BufferBase::NextGrowth(std::size_t growthBlocks, std::size_t chunkSize) const {
    if (!sGrowDanamically || chunkSize >= sGrowLimitBytes) return growthBlocks;
    const std::size_t grown = growthBlocks + growthBlocks / 2 + growthBlocks % 2;
    const std::size_t limit = mGrowthLimit.load(std::memory_order_relaxed);
    // A chunk above the limit does not shrink.
    if (grown > limit / mBlockSize) [[unlikely]]
        return std::max(growthBlocks, limit / mBlockSize);
    return grown;
}

// The governors' part in the acquisition of a chunk. A chunk acquired during a detachment is either requested
// and credited or neither. No thread waits for that; the credit is given once, by the last thread with a
// request under way, whether its chunk was acquired or not.
class BufferBase::GovernorsAsked {
public:
    explicit GovernorsAsked(BufferBase& buffer) : mBuffer(buffer), mIsInside(buffer.mGovernors.Enter()) {}
    ~GovernorsAsked() noexcept(false) {
        if (!mIsInside || !mBuffer.mGovernors.Leave()) return;
        try {
            mBuffer.CreditGovernors();
        } catch (...) {
            // The chunk's own failure is the one to report.
            if (std::uncaught_exceptions() != mUncaught) return;
            Total().fetch_sub(mAdded, std::memory_order_relaxed);  // the chunk is freed
            throw;
        }
    }
    GovernorsAsked(const GovernorsAsked&) = delete;
    GovernorsAsked& operator=(const GovernorsAsked&) = delete;

    void Ask(std::size_t size) const {
        if (mIsInside) AskMemGovernors(size);
    }
    void AddToTotal(std::size_t size) {
        Total().fetch_add(size, std::memory_order_relaxed);
        mAdded = size;
    }

private:
    std::atomic<std::size_t>& Total() const {
        return mIsInside ? mBuffer.mTotalGoverned : mBuffer.mTotalDetached;
    }

    BufferBase& mBuffer;
    const bool mIsInside;
    const int mUncaught = std::uncaught_exceptions();
    std::size_t mAdded = 0;
};

// Memory of a chunk that is being acquired.
class BufferBase::FreshMemory {
public:
    explicit FreshMemory(BufferBase& buffer) : mBuffer(buffer) {}
    ~FreshMemory() {
        if (mStart != nullptr) mBuffer.GiveMemoryBack(mStart);
    }
    FreshMemory(const FreshMemory&) = delete;
    FreshMemory& operator=(const FreshMemory&) = delete;

    void Take(std::size_t size) { mStart = mBuffer.TakeMemory(size); }
    char* Release() { return std::exchange(mStart, nullptr); }

private:
    BufferBase& mBuffer;
    char* mStart = nullptr;
};

// Our own cheap tests come first, then the contract, then the governors, then the system. An earlier grant is
// not taken back when a later one refuses.
Chunk BufferBase::AcquireChunk(std::size_t size) {
    if (IsLocked()) ThrowLocked();
    if (mOnBoundary) size = RoundUp(size, sPageSize);
    const std::size_t limit = mLimit;
    // Without the new chunk, so one chunk may exceed the limit; kept for callers that set limits by that
    // rule.
    if (limit != 0 && limit < TotalAllocated())
        ThrowBufferException("The buffer memory usage is over the predefined limit."_w);
    if (mContract) CheckContractAnswer(mContract->RequestChunk(size, true));
    FreshMemory memory(*this);
    {
        GovernorsAsked asked(*this);
        asked.Ask(size);
        memory.Take(size);
        if (mContract) mContract->SettleChunk(size);
        asked.AddToTotal(size);
    }
    char* const start = memory.Release();
    if (!mOnBoundary) {
        sHeapChunks.fetch_add(1, std::memory_order_relaxed);
        sHeapBytes.fetch_add(size, std::memory_order_relaxed);
    }
    Poison(start, size);
    return {start, start + size};
}

char* BufferBase::TakeMemory(std::size_t size) {
    void* const memory = mOnBoundary ? ZNTVirtualAlloc(size, true) : ::operator new(size, std::nothrow);
    if (memory == nullptr) throw BadAllocation();
    if (mOnBoundary) sOnBoundaryAllocTotal += size;
    return static_cast<char*>(memory);
}

void BufferBase::GiveMemoryBack(char* start) {
    if (mOnBoundary) {
        ZNTVirtualFree(start, 0, true);
    } else {
        ::operator delete(start);
    }
}

void BufferBase::ReleaseChunk(const Chunk& chunk) {
    if (chunk.start == nullptr) return;
    Unpoison(chunk.start, chunk.Size());
    if (mOnBoundary) sOnBoundaryAllocTotal -= chunk.Size();
    // The heap and the pages' callback may write into what is given back, so a chunk that can't be made
    // writable is leaked, unless the system gave its pages.
    if (mProtected && !UnprotectChunk(chunk)) {
        if (mOnBoundary && chunk.start != mAdopted.start) ZNTVirtualFree(chunk.start, 0, false);
        return;
    }
    // The memory behind the object is freed with it.
    if (chunk.start == mAdopted.start) return;
    if (!mOnBoundary) {
        sHeapChunks.fetch_sub(1, std::memory_order_relaxed);
        sHeapBytes.fetch_sub(chunk.Size(), std::memory_order_relaxed);
    }
    GiveMemoryBack(chunk.start);
}

bool BufferBase::ProtectChunk(const Chunk& chunk) {
    mProtected = true;
    return ZNTVirtualProtect(chunk.start, chunk.Size(), false) == 0;
}

bool BufferBase::UnprotectChunk(const Chunk& chunk) {
    return chunk.start == nullptr || os::UnprotectPages(chunk.start, chunk.Size());
}

void BufferBase::ThrowLocked() {
    ThrowBufferException("Attempted to allocate on a locked buffer."_w);
}

}  // namespace ZBase
