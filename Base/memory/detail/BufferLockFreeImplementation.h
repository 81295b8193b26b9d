#pragma once

#include <Base/memory/detail/BufferBase.h>
#include <Base/memory/detail/Gate.h>
#include <Base/memory/detail/SlotTable.h>

#include <atomic>
#include <cstddef>

namespace ZBase {

// The buffer for any number of threads at once. It takes no lock: bytes are claimed by compare-and-swap, and
// a thread that finds no space adds a chunk. Every operation but the destructor may run on any thread at any
// time; a thread that has passed the test for `Lock` continues. Only `Lock` waits, for threads that are
// writing a node.
class alignas(16) BufferLockFreeImplementation final : public BufferBase {
public:
    BufferLockFreeImplementation(int initialBlocks, int growthBlocks, MemoryContract* contract,
                                 std::size_t blockSize, bool onBoundary, Room room);

    bool EnsureAvailable(std::size_t size) override;
    void* Allocate(std::size_t size) override;
    std::size_t GetUsedKB() override { return GetUsedBytes() >> 10; }

    // Walks all chunks; while threads allocate, each chunk's value is from another moment.
    std::size_t GetUsedBytes() override;

    void Lock() override;
    void AddCleanup(void (*function)(void*), void* argument) override;

private:
    // Both kinds of node are allocated in this buffer.
    struct BigAllocation {
        Chunk chunk;
        BigAllocation* next = nullptr;
    };
    struct CleanupNode {
        void (*function)(void*) = nullptr;
        void* argument = nullptr;
        CleanupNode* next = nullptr;
    };

    ~BufferLockFreeImplementation() noexcept(false) override;

    // Separate from the ordinary allocation, so that it stays short; sizes are of pieces.
    [[gnu::noinline]] void* AllocateBig(std::size_t size);
    [[gnu::noinline]] void* AllocateBehind(std::size_t size);

    char* AllocatePiece(std::size_t size);
    char* AllocateInNewChunk(std::size_t size);
    void Publish(const Chunk& chunk, std::size_t used);
    void MakeRoom(std::size_t size);
    std::size_t ChunkSize(std::size_t growthBlocks, std::size_t size) const;
    std::size_t NewChunkSize(std::size_t size);
    void ReleaseChunks();
    template <class Visit>
    void ForEachChunk(Visit visit);

    // Makes a node in a piece of the buffer; false, with nothing written, once the buffer is locked.
    template <class Node>
    bool Push(std::atomic<Node*>& head, void* memory, const Node& content);
    void StopNodeWriters();

    SlotTable mSlots;
    std::atomic<BigAllocation*> mBigAllocations{nullptr};  // a stack without pops
    std::atomic<CleanupNode*> mCleanups{nullptr};          // a stack without pops
    std::atomic<std::size_t> mGrowthBlocks;                // blocks of the next chunk
    Gate mNodeWriters;                                     // closed by `Lock`
};

}  // namespace ZBase
