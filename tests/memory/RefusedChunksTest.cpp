// Effects of refusals in a lock-free buffer.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"
#include "tests/support/Sanitizers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr int kRefusals = test::kIsSanitized ? 4000 : 40000;

// A contract that keeps no record.
class Contract final : public MemoryContract {
public:
    void AddRef() override {}
    void Release() override {}
    unsigned int Request(unsigned int) override { return 0; }
    void Settle(unsigned int) override {}
    unsigned int RequestChunk(std::size_t bytes, bool) override {
        asked = bytes;
        return code;
    }
    void SettleChunk(std::size_t) override {}

    unsigned int code = 0;
    std::size_t asked = 0;
};

// Chunks of one size, so that refusals do not make them large.
class RefusedChunks : public testing::Test {
protected:
    void SetUp() override { Buffer::sGrowDanamically = false; }
    void TearDown() override { Buffer::sGrowDanamically = true; }

    BufferPtr Make(int initialBlocks = 0) {
        return test::MakeBuffer(Implementation::kLockFree,
                                {.initialBlocks = initialBlocks, .contract = &contract, .blockSize = 256});
    }
    void Refuse(Buffer& buffer, int count) {
        contract.code = 8;
        for (int i = 0; i != count; ++i) ASSERT_FALSE(buffer.EnsureAvailable(200));
        contract.code = 0;
    }

    Contract contract;
};

// A walk over the pages of all refused slots, from the newest for each, would take minutes here. The tests of
// the pages count the links of one search.
TEST_F(RefusedChunks, CostTheNextCallsNothing) {
    BufferPtr buffer = Make();
    Refuse(*buffer, kRefusals);
    std::size_t used = 0;
    for (int i = 0; i != kRefusals; ++i) {
        buffer->Allocate(8);
        used += 8;
    }
    EXPECT_EQ(buffer->GetUsedBytes(), used);
}

// One slot of each page is in use, the others were refused.
TEST_F(RefusedChunks, BetweenOthersAreSkipped) {
    BufferPtr buffer = Make();
    for (int i = 0; i != 300; ++i) {
        Refuse(*buffer, 15 + i % 40);
        buffer->Allocate(200);
    }
    EXPECT_EQ(buffer->GetUsedBytes(), 300u * 200);
    EXPECT_EQ(buffer->GetTotalBytes(), 300u * 256);
    buffer->Lock();
}

// Each allocation that the active slot can't serve advances by one index, refused ones included, and
// meanwhile uses the chunk after them all.
TEST_F(RefusedChunks, DoNotHideTheChunkBehindThem) {
    BufferPtr buffer = Make();
    Refuse(*buffer, 1000);
    contract.asked = 0;
    auto* const first = static_cast<char*>(buffer->Allocate(8));
    EXPECT_EQ(contract.asked, 256u);
    contract.asked = 0;
    for (int i = 1; i != 32; ++i) EXPECT_EQ(buffer->Allocate(8), first + 8 * i);
    EXPECT_EQ(contract.asked, 0u);
    EXPECT_TRUE(buffer->EnsureAvailable(8));
    EXPECT_EQ(contract.asked, 256u);
    contract.asked = 0;
    for (int i = 0; i != 32; ++i) buffer->Allocate(8);
    EXPECT_EQ(contract.asked, 0u);
}

TEST_F(RefusedChunks, BeforeTheActiveSlotIsReachedLeaveItsChunkToIt) {
    BufferPtr buffer = Make(8192);
    auto* const first = static_cast<char*>(buffer->Allocate(8));
    for (int i = 0; i != kRefusals; ++i) {
        contract.code = 8;
        ASSERT_FALSE(buffer->EnsureAvailable(4u << 20));
    }
    EXPECT_EQ(buffer->Allocate(8), first + 8);
}

// A refused chunk has grown the next one all the same: after n refusals of a buffer with one block of growth
// the n-th multiplier is requested, up to the first that passes the growth limit.
TEST(RefusedChunksGrowth, StandsStepByStepUpToTheLimit) {
    Contract contract;
    contract.code = 8;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.contract = &contract});
    for (const std::size_t blocks : {1, 2, 3, 5, 8, 12, 18, 27, 41, 62, 93, 140}) {
        EXPECT_FALSE(buffer->EnsureAvailable(8));
        EXPECT_EQ(contract.asked, blocks * 4096);
    }
    for (int i = 0; i != 100; ++i) EXPECT_THROW(buffer->Allocate(8), ContractManagerAllocException);
    EXPECT_EQ(contract.asked, 377524224u);
    Buffer::sGrowDanamically = false;  // stops the growth, without undoing it
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(contract.asked, 377524224u);
    Buffer::sGrowDanamically = true;
}

TEST(RefusedChunksGrowth, SizeThatNoMemoryHasDoesNotGrowTheNextChunk) {
    Contract contract;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.contract = &contract});
    for (int i = 0; i != 40; ++i) {
        EXPECT_FALSE(buffer->EnsureAvailable(static_cast<std::size_t>(-1) - 4096));
        EXPECT_THROW(buffer->Allocate(static_cast<std::size_t>(-1) - 4096), std::bad_alloc);
    }
    buffer->Allocate(8);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
}

// A single-thread buffer grows only after a chunk was acquired: it requests its first chunk again and again.
TEST(RefusedChunksGrowth, IsNotKeptByASingleThreadBuffer) {
    Contract contract;
    contract.code = 8;
    BufferPtr buffer = test::MakeBuffer(Implementation::kSingleThread, {.contract = &contract});
    for (int i = 0; i != 40; ++i) EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(contract.asked, 4096u);
}

}  // namespace
