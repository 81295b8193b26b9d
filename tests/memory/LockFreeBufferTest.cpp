// The slots of the lock-free buffer, on one thread.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kGrowLimit = 268435456;

class LockFreeBuffer : public testing::Test {
protected:
    static BufferPtr Make(const test::BufferArguments& arguments = {}) {
        return test::MakeBuffer(Implementation::kLockFree, arguments);
    }
};

TEST_F(LockFreeBuffer, RequestBelowTheGrowLimitTakesASlot) {
    BufferPtr buffer = Make();
    buffer->Allocate(kGrowLimit - 8);
    EXPECT_EQ(buffer->GetTotalBytes(), kGrowLimit);
    EXPECT_EQ(buffer->GetUsedBytes(), kGrowLimit - 8);
}

TEST_F(LockFreeBuffer, RequestOfTheGrowLimitIsBigAndItsNodeOpensASlot) {
    BufferPtr buffer = Make();
    buffer->Allocate(kGrowLimit);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + kGrowLimit);
    EXPECT_EQ(buffer->GetUsedBytes(), 24 + kGrowLimit);
    buffer->Allocate(kGrowLimit - 7);  // rounded up to the limit
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + 2 * kGrowLimit);
    EXPECT_EQ(buffer->GetUsedBytes(), 2 * (24 + kGrowLimit));
}

TEST_F(LockFreeBuffer, BigRequestDoesNotGrowTheNextChunk) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    buffer->Allocate(kGrowLimit);
    buffer->Allocate(4096);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + kGrowLimit + 4096);
}

TEST_F(LockFreeBuffer, BigRequestOnBoundaryIsRoundedToPages) {
    BufferPtr buffer = Make({.onBoundary = true});
    buffer->Allocate(kGrowLimit + 8);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + kGrowLimit + 4096);
    EXPECT_EQ(buffer->GetUsedBytes(), 24 + kGrowLimit + 4096);
}

TEST_F(LockFreeBuffer, NodeOfARefusedBigRequestStaysSpent) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
    contract.chunkCode = 8;
    EXPECT_THROW(buffer->Allocate(kGrowLimit), ContractManagerAllocException);
    EXPECT_EQ(buffer->GetUsedBytes(), 24u);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
}

TEST_F(LockFreeBuffer, EnsureAvailableHasNoBigPath) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    EXPECT_TRUE(buffer->EnsureAvailable(kGrowLimit + 1));
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + kGrowLimit + 4096);
    EXPECT_EQ(buffer->GetUsedBytes(), 0u);
}

// A refused chunk in `EnsureAvailable` leaves an index whose slot stays empty. Thirteen of them make more
// than twelve open slots, and then the active one is given up whatever free bytes it has.
TEST_F(LockFreeBuffer, ActiveSlotIsLeftWhateverItHasWithMoreThanTwelveOpen) {
    for (int empty = 10; empty <= 12; ++empty) {
        test::RecordingContract contract;
        BufferPtr buffer = Make({.initialBlocks = 8192, .contract = &contract});  // far above the table
        const std::size_t total = buffer->GetTotalBytes();
        auto* const first = static_cast<char*>(buffer->Allocate(8));
        contract.chunkCode = 8;
        for (int i = 0; i != empty; ++i) EXPECT_FALSE(buffer->EnsureAvailable(total));
        EXPECT_THROW(buffer->Allocate(total), ContractManagerAllocException);
        contract.chunkCode = 0;
        // The search starts after the big chunk if that was given up.
        const bool left = static_cast<char*>(buffer->Allocate(8)) != first + 8;
        EXPECT_EQ(left, empty + 1 > 12) << empty;
    }
}

TEST_F(LockFreeBuffer, RefusedEnsureSpendsAnIndex) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.contract = &contract});
    contract.chunkCode = 8;
    for (int i = 0; i != 16; ++i) EXPECT_FALSE(buffer->EnsureAvailable(8));
    contract.chunkCode = 0;
    // The next index is the seventeenth, the first of the second page.
    EXPECT_NE(buffer->Allocate(8), nullptr);
    EXPECT_EQ(buffer->GetUsedBytes(), 8u);
}

// With k slots open the active one is given up at the k-th entry of the table, and not with 8 bytes more.
TEST_F(LockFreeBuffer, ActiveSlotIsLeftByTheTable) {
    std::size_t entry = 2048;
    for (int open = 1; open <= 12; ++open, entry *= 2) {
        for (const std::size_t room : {entry, entry + 8}) {
            test::RecordingContract contract;
            BufferPtr buffer = Make({.initialBlocks = 2048, .contract = &contract});
            const std::size_t chunk = buffer->GetTotalBytes();
            auto* const start = static_cast<char*>(buffer->Allocate(chunk - room));
            contract.chunkCode = 8;
            for (int i = 1; i != open; ++i) EXPECT_FALSE(buffer->EnsureAvailable(2 * chunk));
            EXPECT_THROW(buffer->Allocate(2 * chunk), ContractManagerAllocException);
            contract.chunkCode = 0;
            const bool left = static_cast<char*>(buffer->Allocate(8)) != start + chunk - room;
            EXPECT_EQ(left, room == entry) << open;
        }
    }
}

TEST_F(LockFreeBuffer, PiecesFillTheFirstOpenSlotThatHasRoom) {
    BufferPtr buffer = Make({.initialBlocks = 16});
    auto* const first = static_cast<char*>(buffer->Allocate(65536 - 3000));
    auto* const second = static_cast<char*>(buffer->Allocate(10000));  // in a chunk of 12288
    EXPECT_EQ(buffer->Allocate(8), first + 65536 - 3000);
    buffer->Allocate(10000);  // with two slots open, the first one's 2992 bytes are given up
    EXPECT_EQ(buffer->Allocate(2000), second + 10000);
}

TEST_F(LockFreeBuffer, ManyPagesKeepCount) {
    BufferPtr buffer = Make({.blockSize = 256});
    std::size_t used = 0;
    for (int i = 0; i != 200; ++i) {
        buffer->Allocate(300000);
        used += 300000;
        EXPECT_EQ(buffer->GetUsedBytes(), used);
    }
    buffer->Lock();
    EXPECT_EQ(buffer->GetUsedBytes(), used);
}

}  // namespace
