#pragma once

#include <Base/frame/SmartPtrI.h>
#include <Base/memory/Buffer.h>
#include <Base/memory/MemoryContract.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>

namespace ZBase {

// A run of memory that a buffer got from the heap or the virtual memory service. Both null: an empty entry.
struct Chunk {
    char* start = nullptr;
    char* end = nullptr;  // one past the last byte

    std::size_t Size() const { return static_cast<std::size_t>(end - start); }
};

// What the implementations have in common: the totals, the budgets, and the one way by which memory enters
// and leaves a buffer. Everything here may be called by any number of threads at once.
class BufferBase : public Buffer {
public:
    void Delete() override;
    std::size_t GetTotalKB() override { return GetTotalBytes() >> 10; }
    std::size_t GetTotalBytes() override { return mTotalAllocated.load(std::memory_order_relaxed); }
    void SetLimit(std::int64_t limit) override;
    void DetachFromGovernors() override;
    bool IsDetachedFromGovernors() override { return mDetached; }

    // Bytes behind an object, in its heap block, for its first chunk.
    struct Room {
        std::size_t size;
    };

    // The room with which a factory makes its object: 0 where one block can't serve both. Who is to be asked
    // for a chunk must be asked before its memory is taken; and a locked chunk must not lock its object, so
    // no whole page may lie within it.
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

    // No memory has more bytes than this, so nobody is asked for it.
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

    // Gives a chunk back, for the destructors; the totals keep it. An empty entry is skipped.
    void ReleaseChunk(const Chunk& chunk);

    // Makes a chunk read-only; false if the system refuses. The release makes it writable again.
    bool ProtectChunk(const Chunk& chunk);

    bool IsLocked() const { return mLocked.load(std::memory_order_relaxed); }
    void SetLocked() { mLocked = true; }
    [[noreturn]] static void ThrowLocked();

    // The multiplier that follows `growthBlocks`, if chunks grow beyond one of `chunkSize` bytes.
    static std::size_t NextGrowth(std::size_t growthBlocks, std::size_t chunkSize);

    std::size_t BlockSize() const { return mBlockSize; }
    MemoryContract* Contract() const { return mContract.Get(); }

private:
    char* TakeMemory(std::size_t size);
    void GiveMemoryBack(char* start);

    const std::size_t mBlockSize;
    std::atomic<std::size_t> mTotalAllocated{0};  // of all chunks ever acquired
    std::atomic<std::size_t> mLimit{0};           // 0: none
    const bool mOnBoundary;
    Chunk mAdopted;
    SmartPtrI<MemoryContract> mContract;
    std::atomic<bool> mLocked{false};
    std::atomic<bool> mDetached{false};   // the governors have been credited
    std::atomic<bool> mProtected{false};  // some chunk may be read-only
};

}  // namespace ZBase
