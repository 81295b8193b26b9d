#pragma once

#include <Base/ContractManagerAllocator.h>
#include <Base/memory/detail/BufferBase.h>

#include <atomic>
#include <cstddef>
#include <vector>

namespace ZBase {

// The buffer for one thread at a time: a pointer that moves through a growing row of chunks. It takes no
// lock; instead a detector turns calls that overlap, which would corrupt it in silence, into a loud failure.
// Two threads that allocate one after the other are harmless and go unnoticed.
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

    // Gives the physical memory of all chunks back and keeps their addresses, so that a later access faults.
    // Throws `BufferException` when the system refuses, with the chunks before that one gone.
    void DeCommitChunk();

private:
    struct Cleanup {
        void (*function)(void*);
        void* argument;
    };

    class Leaving;  // ends the call that is inside, on every way out

    ~BufferImplementation() noexcept(false) override;

    bool TryEnter(unsigned long thread);
    void Enter();
    void Leave();

    // Off the path of the ordinary allocation, so that it stays short: of a thread that is new here, of a
    // call that found another inside, and the rest of a call that is inside.
    [[gnu::noinline]] void* AllocateFirst(std::size_t size);
    [[gnu::noinline]] void* AllocateOverlapping(std::size_t size);
    [[gnu::noinline]] void* AllocateInside(std::size_t size);

    // Of the current chunk. A piece of 0 bytes, which no size can be rounded to, is larger than any room.
    bool Fits(std::size_t pieceSize) const {
        return pieceSize - 1 < static_cast<std::size_t>(mCurrentEnd - mCurrentPos);
    }
    void* Take(std::size_t pieceSize);
    std::size_t UsedOfCurrent() const { return static_cast<std::size_t>(mCurrentPos - mCurrentStart); }

    // Makes room for a piece at `mCurrentPos`.
    void MakeRoom(std::size_t size);
    void Fill(const Chunk& chunk);
    void ReleaseChunks();

    // Calls `visit` with the chunks in the order in which they came.
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
