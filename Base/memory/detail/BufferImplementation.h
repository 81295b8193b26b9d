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
class BufferImplementation final : public BufferBase {
public:
    BufferImplementation(int initialBlocks, int growthBlocks, MemoryContract* contract, std::size_t blockSize,
                         bool onBoundary);

    bool EnsureAvailable(std::size_t size) override;
    void* Allocate(std::size_t size) override;
    std::size_t GetUsedKB() override { return mUsedBytes >> 10; }
    std::size_t GetUsedBytes() override { return mUsedBytes; }
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

    class Entry;  // a call that is inside, for the detector

    ~BufferImplementation() noexcept(false) override;

    // Makes room for `size` bytes, rounded to a piece, at `mCurrentPos`.
    void MakeRoom(std::size_t size);
    void ReleaseChunks();

    std::atomic<unsigned int> mActiveThread{0};  // the thread inside an allocation
    std::vector<Chunk, ContractManagerAllocator<Chunk>> mChunks;
    char* mCurrentPos = nullptr;  // next free byte of the current chunk, the last one that was acquired
    char* mCurrentEnd = nullptr;
    std::size_t mUsedBytes = 0;
    std::size_t mGrowthBlocks;  // blocks of the next chunk
    std::vector<Cleanup> mCleanups;
};

}  // namespace ZBase
