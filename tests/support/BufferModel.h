#pragma once

// A model of the buffers, as simple as possible: no pointers, no memory, no speed. A chunk is a size and the
// bytes taken from it, a piece is its chunk and its offset.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace test {

struct ModelPiece {
    std::size_t chunk;  // index of the chunk, from 0 over all acquired ones
    std::size_t offset;
    bool operator==(const ModelPiece&) const = default;
};

/// The budget that refuses the next chunks.
enum class Refusal { kNone, kContract, kGovernor };

class BufferModel {
public:
    static constexpr std::size_t kPage = 4096;

    /// That of the process.
    inline static std::size_t sGrowLimit = std::size_t{256} << 20;

    BufferModel(std::size_t blockSize, std::size_t growthBlocks, bool onBoundary)
        : mBlockSize(blockSize), mGrowth(growthBlocks), mOnBoundary(onBoundary) {}
    virtual ~BufferModel() = default;

    virtual void Start(std::size_t initialBlocks) = 0;

    /// No value: the call fails.
    virtual std::optional<ModelPiece> Allocate(std::size_t size) = 0;
    virtual bool EnsureAvailable(std::size_t size) = 0;

    /// False: the call fails.
    virtual bool AddCleanup() = 0;

    std::size_t Total() const { return mTotal; }
    std::size_t Used() const { return mUsed; }
    const BudgetCalls& Calls() const { return mCalls; }

    Refusal refusal = Refusal::kNone;
    std::size_t limit = 0;
    bool locked = false;
    bool detached = false;
    bool grows = true;
    std::size_t growthLimit = std::numeric_limits<std::size_t>::max();  // of this buffer

protected:
    static std::size_t Round(std::size_t size) { return ((size == 0 ? 1 : size) + 7) / 8 * 8; }

    std::size_t Blocks(std::size_t size) const { return (size + mBlockSize - 1) / mBlockSize; }

    // The chunk's size, or no value if it is refused.
    std::optional<std::size_t> Acquire(std::size_t size) {
        if (mOnBoundary) size = (size + kPage - 1) / kPage * kPage;
        if (limit != 0 && mTotal > limit) return std::nullopt;
        mCalls.emplace_back("RequestChunk", size);
        if (refusal == Refusal::kContract) return std::nullopt;
        if (!detached) {
            mCalls.emplace_back("governor asks", size);
            if (refusal == Refusal::kGovernor) return std::nullopt;
        }
        mCalls.emplace_back("SettleChunk", size);
        mTotal += size;
        ++mChunksCame;
        return size;
    }

    // By half, but not beyond the limit of this buffer; larger chunks stay as they are.
    void Grow(std::size_t chunkSize) {
        if (!grows || chunkSize >= sGrowLimit) return;
        const std::size_t grown = mGrowth + (mGrowth + 1) / 2;
        mGrowth = std::max(mGrowth, std::min(grown, growthLimit / mBlockSize));
    }

    std::size_t mBlockSize;
    std::size_t mGrowth;
    bool mOnBoundary;
    std::size_t mTotal = 0;
    std::size_t mUsed = 0;
    std::size_t mChunksCame = 0;
    BudgetCalls mCalls;
};

class SingleThreadModel final : public BufferModel {
public:
    using BufferModel::BufferModel;

    void Start(std::size_t initialBlocks) override {
        if (initialBlocks == 0) return;
        NoteEntry();
        mSize = *Acquire(mBlockSize * initialBlocks);
    }

    std::optional<ModelPiece> Allocate(std::size_t size) override {
        if (!EnsureAvailable(size)) return std::nullopt;
        const ModelPiece piece{mChunksCame - 1, mTaken};
        mTaken += Round(size);
        mUsed += Round(size);
        return piece;
    }

    bool EnsureAvailable(std::size_t size) override {
        if (locked) return false;
        if (mSize - mTaken >= Round(size)) return true;
        std::size_t blocks = mGrowth;
        if (mBlockSize * blocks < Round(size)) blocks = Blocks(Round(size));
        NoteEntry();
        const auto chunk = Acquire(mBlockSize * blocks);
        if (!chunk) return false;
        mSize = *chunk;
        mTaken = 0;
        Grow(mBlockSize * blocks);
        return true;
    }

    bool AddCleanup() override { return true; }

private:
    // The array of chunks doubles its capacity when it is full, at the contract's charge.
    void NoteEntry() {
        if (mEntries == mRoomForEntries) {
            mRoomForEntries = mRoomForEntries == 0 ? 1 : 2 * mRoomForEntries;
            mCalls.emplace_back("Request", 16 * mRoomForEntries);
            mCalls.emplace_back("Settle", 16 * mRoomForEntries);
        }
        ++mEntries;
    }

    std::size_t mSize = 0;
    std::size_t mTaken = 0;
    std::size_t mEntries = 0;
    std::size_t mRoomForEntries = 0;
};

class LockFreeModel final : public BufferModel {
public:
    using BufferModel::BufferModel;

    void Start(std::size_t initialBlocks) override {
        if (initialBlocks == 0) return;
        const auto size = Acquire(mBlockSize * initialBlocks);
        mSlots.push_back({true, *size, 0, mChunksCame - 1});
    }

    std::optional<ModelPiece> Allocate(std::size_t size) override {
        if (locked) return std::nullopt;
        size = Round(size);
        if (size < sGrowLimit) return FromSlots(size);
        if (!FromSlots(24)) return std::nullopt;
        const auto chunk = Acquire(size);
        if (!chunk) return std::nullopt;
        mUsed += *chunk;
        return ModelPiece{mChunksCame - 1, 0};
    }

    bool EnsureAvailable(std::size_t size) override {
        if (locked) return false;
        size = Round(size);
        for (std::size_t i = mActive; i < mSlots.size(); ++i)
            if (mSlots[i].HasRoom(size)) return true;
        mSlots.push_back({});
        const auto chunk = Acquire(NewChunkSize(size));
        if (!chunk) return false;
        mSlots.back() = {true, *chunk, 0, mChunksCame - 1};
        return true;
    }

    // Its node is a piece.
    bool AddCleanup() override { return Allocate(24).has_value(); }

private:
    struct Slot {
        bool published = false;
        std::size_t size = 0;
        std::size_t taken = 0;
        std::size_t chunk = 0;
        bool HasRoom(std::size_t wanted) const { return published && size - taken >= wanted; }
    };

    std::optional<ModelPiece> FromSlots(std::size_t size) {
        if (const auto piece = FromSlot(mActive, size)) return piece;
        if (mActive < mSlots.size()) {
            const std::size_t next = mActive + 1;
            const std::size_t open = mSlots.size() - mActive;
            const Slot& active = mSlots[mActive];
            // The table is 2048 for one open slot, and doubles with each further one.
            if (open > 12 || (active.published && active.size - active.taken <= std::size_t{1024} << open))
                mActive = next;
            for (std::size_t i = next; i < mSlots.size(); ++i)
                if (const auto piece = FromSlot(i, size)) return piece;
        }
        const auto chunk = Acquire(NewChunkSize(size));
        if (!chunk) return std::nullopt;
        mSlots.push_back({true, *chunk, size, mChunksCame - 1});
        mUsed += size;
        return ModelPiece{mChunksCame - 1, 0};
    }

    std::optional<ModelPiece> FromSlot(std::size_t index, std::size_t size) {
        if (index >= mSlots.size() || !mSlots[index].HasRoom(size)) return std::nullopt;
        const ModelPiece piece{mSlots[index].chunk, mSlots[index].taken};
        mSlots[index].taken += size;
        mUsed += size;
        return piece;
    }

    std::size_t NewChunkSize(std::size_t size) {
        std::size_t chunkSize = mBlockSize * mGrowth;
        if (chunkSize < size) chunkSize = mBlockSize * Blocks(size);
        Grow(chunkSize);
        return chunkSize;
    }

    std::size_t mActive = 0;
    std::vector<Slot> mSlots;
};

}  // namespace test
