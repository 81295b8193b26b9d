#pragma once

#include <Base/frame/SmartPtrI.h>
#include <Base/memory/Buffer.h>
#include <Base/memory/MemoryContract.h>
#include <Base/memory/detail/Gate.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace ZBase {

// Memory from the heap or the virtual memory service. Both null: an empty entry.
struct Chunk {
    char* start = nullptr;
    char* end = nullptr;  // one past the last byte

    std::size_t Size() const { return static_cast<std::size_t>(end - start); }
};

// The common part of the implementations: the totals, the budgets, and the only way to acquire and free
// memory. All functions may be called by any number of threads at once.
class BufferBase : public Buffer {
public:
    void Delete() override;
    std::size_t GetTotalKB() override { return GetTotalBytes() >> 10; }
    std::size_t GetTotalBytes() override { return TotalAllocated(); }
    void SetLimit(std::int64_t limit) override;
    void DetachFromGovernors() override;
    bool IsDetachedFromGovernors() override { return mGovernors.IsClosed(); }

    // The largest size that chunks grow to, in bytes.
    void LimitGrowth(std::size_t chunkBytes) { mGrowthLimit.store(chunkBytes, std::memory_order_relaxed); }

    // Bytes behind an object, in its heap block, for its first chunk.
    struct Room {
        std::size_t size;
    };

    // The room with which a factory makes its object: 0 where one block can't serve both. A budget must be
    // called before the memory is taken, and `Lock` must not protect the object, so the room contains no
    // whole page.
    static Room RoomForFirstChunk(int initialBlocks, MemoryContract* contract, std::size_t blockSize,
                                  bool onBoundary);

    static void* operator new(std::size_t objectSize, Room room);
    static void operator delete(void* memory, Room room) noexcept;
    static void operator delete(void* memory) noexcept;

protected:
    BufferBase(std::size_t blockSize, bool onBoundary, MemoryContract* contract);
    BufferBase(const BufferBase&) = delete;
    BufferBase& operator=(const BufferBase&) = delete;
    ~BufferBase() noexcept(false) override;

    // No allocation can be larger, so larger requests fail at once.
    static constexpr std::size_t kLargestChunk = std::numeric_limits<std::size_t>::max() / 2;

    // The bytes that a piece of `size` takes: 0 for a size that can't be rounded.
    static std::size_t PieceSize(std::size_t size) { return (size + (size == 0 ? 8 : 7)) & ~std::size_t{7}; }

    // `count` blocks in bytes. Throws `std::bad_alloc` when that is more than the largest chunk.
    std::size_t BytesOfBlocks(std::size_t count) const;

    // The blocks that `size` bytes take.
    std::size_t BlocksOfBytes(std::size_t size) const {
        return size / mBlockSize + (size % mBlockSize == 0 ? 0 : 1);
    }

    // The chunk of `room` bytes in the block of the object, which ends at `objectEnd`.
    Chunk AdoptRoom(void* objectEnd, Room room);

    // That chunk; empty if there is none.
    const Chunk& AdoptedChunk() const { return mAdopted; }

    // New memory of `size` bytes, on an on-boundary buffer rounded up to pages. Throws what `Allocate`
    // throws.
    Chunk AcquireChunk(std::size_t size);

    // Frees a chunk, for the destructors; the totals keep it. An empty entry is skipped.
    void ReleaseChunk(const Chunk& chunk);

    // Makes a chunk read-only; false if the system refuses. `ReleaseChunk` makes it writable again.
    bool ProtectChunk(const Chunk& chunk);

    // For the destructors, before clean-ups that may write to the memory. `forEachChunk` calls its argument
    // with every chunk. A chunk that can't be made writable now is tried again later.
    template <class ForEachChunk>
    void MakeWritable(ForEachChunk forEachChunk) {
        if (!mProtected.exchange(false)) return;
        forEachChunk([this](const Chunk& chunk) {
            if (!UnprotectChunk(chunk)) mProtected = true;
        });
    }

    bool IsLocked() const { return mLocked.load(std::memory_order_relaxed); }
    void SetLocked() { mLocked = true; }
    [[noreturn]] static void ThrowLocked();

    // The multiplier that follows `growthBlocks`, if chunks grow beyond one of `chunkSize` bytes.
    std::size_t NextGrowth(std::size_t growthBlocks, std::size_t chunkSize) const;

    std::size_t BlockSize() const { return mBlockSize; }
    MemoryContract* Contract() const { return mContract.Get(); }

private:
    class GovernorsAsked;
    class FreshMemory;

    bool UnprotectChunk(const Chunk& chunk);
    char* TakeMemory(std::size_t size);
    void GiveMemoryBack(char* start);
    void CreditGovernors();
    std::size_t TotalAllocated() const {
        return mTotalGoverned.load(std::memory_order_relaxed) +
               mTotalDetached.load(std::memory_order_relaxed);
    }

    const std::size_t mBlockSize;
    // Of all chunks ever acquired: what the governors are credited with, and chunks without a request to
    // them.
    std::atomic<std::size_t> mTotalGoverned{0};
    std::atomic<std::size_t> mTotalDetached{0};
    std::atomic<std::size_t> mLimit{0};                                              // 0: none
    std::atomic<std::size_t> mGrowthLimit{std::numeric_limits<std::size_t>::max()};  // bytes of a chunk
    Chunk mAdopted;
    SmartPtrI<MemoryContract> mContract;
    const bool mOnBoundary;
    std::atomic<bool> mLocked{false};
    std::atomic<bool> mProtected{false};  // some chunk may be read-only
    std::atomic<bool> mCredited{false};   // the governors, or a thread is about to
    // A chunk is inside from its request to the governors until the total includes it. The detachment closes
    // the gate, and the last one out credits the governors with all requests. A fork may leave no last one in
    // the child; then the next detachment or the destructor gives the credit.
    Gate mGovernors;
};

}  // namespace ZBase
