// The points in which the two implementations differ, each shown on both.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BudgetCalls;
using test::BufferPtr;
using test::Implementation;
using test::MakeBuffer;

constexpr std::size_t kGrowLimit = 268435456;

void FailProtection(bool fail) {
    if (fail) {
        SetCallBackVirtualProtect([](void*, std::size_t) { return 0; });
    } else {
        UnSetCallBackVirtualProtect();
    }
}

TEST(BufferDifferences, ChunkRecordIsPaidForOnlyInTheSingleThreadBuffer) {
    test::RecordingContract contract;
    BufferPtr buffer = MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 1, .contract = &contract});
    EXPECT_EQ(*contract.calls,
              (BudgetCalls{{"Request", 16}, {"Settle", 16}, {"RequestChunk", 4096}, {"SettleChunk", 4096}}));

    contract.calls->clear();
    buffer = MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1, .contract = &contract});
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"RequestChunk", 4096}, {"SettleChunk", 4096}}));
}

TEST(BufferDifferences, FirstSixteenChunksOfTheLockFreeBufferNeedNoFurtherMemory) {
    Buffer::sGrowDanamically = false;  // so that each piece needs a chunk
    BufferPtr buffer = MakeBuffer(Implementation::kLockFree, {.blockSize = 256});
    for (int chunk = 1; chunk <= 48; ++chunk) {
        const std::size_t before = test::AllocationCount();
        buffer->Allocate(100000);
        const bool opensAPage = chunk == 17 || chunk == 33;
        EXPECT_EQ(test::AllocationCount() - before, opensAPage ? 2u : 1u) << chunk;
    }
    Buffer::sGrowDanamically = true;
}

TEST(BufferDifferences, PieceComesFromAnyOpenChunkOnlyInTheLockFreeBuffer) {
    BufferPtr single = MakeBuffer(Implementation::kSingleThread);
    auto* const first = static_cast<char*>(single->Allocate(8));
    single->Allocate(8192);
    EXPECT_NE(static_cast<char*>(single->Allocate(8)), first + 8);

    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree);
    auto* const start = static_cast<char*>(lockFree->Allocate(8));
    lockFree->Allocate(8192);
    EXPECT_EQ(static_cast<char*>(lockFree->Allocate(8)), start + 8);
}

TEST(BufferDifferences, BigRequestIsRoundedToBlocksOnlyInTheSingleThreadBuffer) {
    const std::size_t size = kGrowLimit + 8;
    BufferPtr single = MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 1});
    single->Allocate(size);
    EXPECT_EQ(single->GetTotalBytes(), 4096 + kGrowLimit + 4096);
    single->Allocate(4096 - 8);  // it is the current chunk now
    EXPECT_EQ(single->GetTotalBytes(), 4096 + kGrowLimit + 4096);

    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1});
    lockFree->Allocate(size);
    EXPECT_EQ(lockFree->GetTotalBytes(), 4096 + size);
    EXPECT_EQ(lockFree->GetUsedBytes(), 24 + size);
    lockFree->Allocate(4096 - 24);  // the open chunk stays current
    EXPECT_EQ(lockFree->GetTotalBytes(), 4096 + size);
}

TEST(BufferDifferences, MultiplierGrowsAfterTheChunkOrBeforeIt) {
    for (const Implementation implementation : {Implementation::kSingleThread, Implementation::kLockFree}) {
        test::RecordingContract contract;
        BufferPtr buffer = MakeBuffer(implementation, {.contract = &contract});
        contract.chunkCode = 8;
        EXPECT_THROW(buffer->Allocate(8), ContractManagerAllocException);
        contract.chunkCode = 0;
        buffer->Allocate(8);
        EXPECT_EQ(buffer->GetTotalBytes(), implementation == Implementation::kLockFree ? 8192u : 4096u);
    }
}

std::vector<int> gOrder;
int gFirst = 1, gSecond = 2, gThird = 3;

void Append(void* order) {
    gOrder.push_back(*static_cast<int*>(order));
}

std::vector<int> CleanupOrder(Implementation implementation) {
    gOrder.clear();
    BufferPtr buffer = MakeBuffer(implementation);
    for (int* const number : {&gFirst, &gSecond, &gThird}) buffer->AddCleanup(Append, number);
    buffer.reset();
    return gOrder;
}

TEST(BufferDifferences, CleanupsRunOldestFirstOrNewestFirst) {
    EXPECT_EQ(CleanupOrder(Implementation::kSingleThread), (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(CleanupOrder(Implementation::kLockFree), (std::vector<int>{3, 2, 1}));
}

Buffer* gEnding;

void AppendAndRegister(void* order) {
    Append(order);
    for (int i = 0; i != 100; ++i) gEnding->AddCleanup(Append, &gThird);
}

TEST(BufferDifferences, CleanupsThatACleanupRegistersRunInTheSameOrder) {
    const std::vector<int> hundred(100, 3);
    for (const Implementation implementation : {Implementation::kSingleThread, Implementation::kLockFree}) {
        const bool lockFree = implementation == Implementation::kLockFree;
        std::vector<int> expected = lockFree ? std::vector<int>{2} : std::vector<int>{1, 2};
        expected.insert(expected.end(), hundred.begin(), hundred.end());
        if (lockFree) expected.push_back(1);
        expected.insert(expected.end(), hundred.begin(), hundred.end());

        gOrder.clear();
        BufferPtr buffer = MakeBuffer(implementation);
        gEnding = buffer.get();
        buffer->AddCleanup(AppendAndRegister, &gFirst);
        buffer->AddCleanup(AppendAndRegister, &gSecond);
        buffer.reset();
        EXPECT_EQ(gOrder, expected);
    }
}

TEST(BufferDifferences, CleanupIsTakenByALockedBufferOnlyIfItIsSingleThread) {
    gOrder.clear();
    BufferPtr single = MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 1});
    single->Lock();
    single->AddCleanup(Append, &gFirst);
    single.reset();
    EXPECT_EQ(gOrder, std::vector<int>{1});

    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1});
    lockFree->AddCleanup(Append, &gSecond);
    lockFree->Lock();
    EXPECT_EQ(
        test::TextOfFailure<ExceptionImpl<BufferException>>([&] { lockFree->AddCleanup(Append, &gFirst); }),
        "Attempted to allocate on a locked buffer.");
    lockFree.reset();
    EXPECT_EQ(gOrder, (std::vector<int>{1, 2}));
}

TEST(BufferDifferences, CleanupNodeCountsAsUsedOnlyInTheLockFreeBuffer) {
    BufferPtr single = MakeBuffer(Implementation::kSingleThread);
    single->AddCleanup(Append, &gFirst);
    EXPECT_EQ(single->GetUsedBytes(), 0u);
    EXPECT_EQ(single->GetTotalBytes(), 0u);

    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree);
    lockFree->AddCleanup(Append, &gFirst);
    EXPECT_EQ(lockFree->GetUsedBytes(), 24u);
    EXPECT_EQ(lockFree->GetTotalBytes(), 4096u);
}

TEST(BufferDifferences, FailedLockLeavesOnlyTheLockFreeBufferLocked) {
    BufferPtr single = MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 1});
    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1});
    FailProtection(true);
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { single->Lock(); }),
              "Unable to lock buffer");
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { lockFree->Lock(); }),
              "Unable to lock buffer (slot)");
    FailProtection(false);
    single->Allocate(8);
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { lockFree->Allocate(8); }),
              "Attempted to allocate on a locked buffer.");
}

TEST(BufferDifferences, BigAllocationsAreLockedFirstAndHaveTheirOwnText) {
    BufferPtr lockFree = MakeBuffer(Implementation::kLockFree);
    lockFree->Allocate(kGrowLimit);
    FailProtection(true);
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { lockFree->Lock(); }),
              "Unable to lock buffer (big allocation)");

    BufferPtr single = MakeBuffer(Implementation::kSingleThread);
    single->Allocate(kGrowLimit);
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { single->Lock(); }),
              "Unable to lock buffer");
    FailProtection(false);
}

TEST(BufferDifferences, EntryOfARefusedChunkIsPassedToTheProtectionOnlyInTheSingleThreadBuffer) {
    for (const Implementation implementation : {Implementation::kSingleThread, Implementation::kLockFree}) {
        test::RecordingContract contract;
        contract.chunkCode = 8;
        BufferPtr buffer = MakeBuffer(implementation, {.contract = &contract});
        EXPECT_FALSE(buffer->EnsureAvailable(8));
        FailProtection(true);
        if (implementation == Implementation::kSingleThread) {
            EXPECT_THROW(buffer->Lock(), BufferException);
        } else {
            EXPECT_NO_THROW(buffer->Lock());
        }
        FailProtection(false);
    }
}

}  // namespace
