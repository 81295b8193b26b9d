#pragma once

#include <Base/ContractManagerAllocator.h>
#include <Base/memory/detail/BufferBase.h>

#include <atomic>
#include <cstddef>
#include <vector>

namespace ZBase {

// The buffer for one thread at a time: a pointer that moves through a growing list of chunks. It takes no
// lock; a detector makes overlapping calls, which would silently corrupt it, fail loudly. Two threads that
// allocate one after the other are harmless and are not reported.
class alignas(16) BufferImplementation final : public BufferBase {
public:
    BufferImplementation(int initialBlocks, int growthBlocks, MemoryContract* contract, std::size_t blockSize,
                         bool onBoundary, Room room);

    bool EnsureAvailable(std::size_t size) override;
    void* Allocate(std::size_t size) override;
    std::size_t GetUsedKB() override { return GetUsedBytes() >> 10; }
    std::size_t GetUsedBytes() override { return mUsedBefore + UsedOfCurrent(); }
    void Lock() override;
    void AddCleanup(void (*function)(void*), void* argument) override;

    // Frees the physical memory of all chunks and keeps their addresses, so that a later access faults.
    // Throws `BufferException` when the system refuses, with earlier chunks already freed.
    void DeCommitChunk();

private:
    struct Cleanup {
        void (*function)(void*);
        void* argument;
    };

    class Leaving;  // marks the buffer as free again, on every way out

    ~BufferImplementation() noexcept(false) override;

    bool TryEnter(unsigned long thread);
    void Enter();
    void Leave();

    // Separate from the ordinary allocation, so that it stays short: for a thread that is new here, for an
    // overlapping call, and for the slow part of an allocation.
    [[gnu::noinline]] void* AllocateFirst(std::size_t size);
    [[gnu::noinline]] void* AllocateOverlapping(std::size_t size);
    [[gnu::noinline]] void* AllocateInside(std::size_t size);

    // Of the current chunk. A piece size of 0, for sizes that can't be rounded, never fits.
    bool Fits(std::size_t pieceSize) const {
        return pieceSize - 1 < static_cast<std::size_t>(mCurrentEnd - mCurrentPos);
    }
    void* Take(std::size_t pieceSize);
    std::size_t UsedOfCurrent() const { return static_cast<std::size_t>(mCurrentPos - mCurrentStart); }

    // Makes room for a piece at `mCurrentPos`.
    void MakeRoom(std::size_t size);
    void Fill(const Chunk& chunk);
    void ReleaseChunks();

    // Calls `visit` with the chunks, oldest first.
    template <class Visit>
    void ForEachChunk(Visit visit) const;

    std::atomic<unsigned int> mActiveThread{0};                   // the thread inside an allocation
    std::vector<Chunk, ContractManagerAllocator<Chunk>> mChunks;  // without the adopted one
    char* mCurrentStart = nullptr;  // of the current chunk, the last one that was acquired
    char* mCurrentPos = nullptr;    // its next free byte
    char* mCurrentEnd = nullptr;
    std::size_t mUsedBefore = 0;  // bytes handed out of the chunks before it
    std::size_t mGrowthBlocks;    // blocks of the next chunk
    std::vector<Cleanup> mCleanups;
};

}  // namespace ZBase
