#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Buffers.h"

namespace {

using test::Implementation;
using ZBase::BufferPtr;
using ZBase::MemoryBudget;
using ZBase::MemoryCeiling;
using BudgetPtr = ZBase::SmartPtrI<MemoryBudget>;

TEST(MemoryBudget, GrantsToTheLastByte) {
    const BudgetPtr budget = MemoryBudget::Create(100);
    EXPECT_EQ(budget->Request(60), 0u);
    EXPECT_EQ(budget->RequestChunk(41, true), 1816u);
    EXPECT_EQ(budget->RequestChunk(40, true), 0u);
    EXPECT_EQ(budget->Request(1), 1816u);
    EXPECT_EQ(budget->Request(0), 0u);
    budget->Settle(60);
    EXPECT_EQ(budget->GetLimit(), 100u);
    EXPECT_EQ(budget->GetGranted(), 100u);
    EXPECT_EQ(budget->GetRefused(), 42u);
    EXPECT_EQ(budget->GetSettled(), 60u);
}

TEST(MemoryBudget, SizesThatWouldWrapAreRefused) {
    const BudgetPtr budget = MemoryBudget::Create(SIZE_MAX - 1);
    EXPECT_EQ(budget->RequestChunk(10, true), 0u);
    EXPECT_NE(budget->RequestChunk(SIZE_MAX, true), 0u);
    EXPECT_NE(budget->RequestChunk(SIZE_MAX - 10, true), 0u);
    EXPECT_EQ(budget->RequestChunk(SIZE_MAX - 11, true), 0u);
    EXPECT_NE(MemoryBudget::Create(0)->RequestChunk(1, true), 0u);
}

TEST(MemoryBudget, WhatIsGivenBackMayBeTakenAgainAndNoMore) {
    const BudgetPtr budget = MemoryBudget::Create(100);
    EXPECT_EQ(budget->Request(100), 0u);
    budget->Refund(30);
    EXPECT_EQ(budget->Request(31), 1816u);
    EXPECT_EQ(budget->Request(30), 0u);
    budget->Refund(1000);
    EXPECT_EQ(budget->GetGranted(), 0u);
    EXPECT_EQ(budget->Request(101), 1816u);
}

TEST(MemoryBudget, GoesWithItsLastReference) {
    const std::size_t blocks = test::LiveBlocks();
    BudgetPtr budget = MemoryBudget::Create(100'000);
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.contract = budget.Get()});
    budget.Reset();
    buffer->Allocate(8);
    buffer.reset();
    EXPECT_EQ(test::LiveBlocks(), blocks);
}

TEST(MemoryBudget, ThreadsNeverGetMoreThanThereIs) {
    const BudgetPtr budget = MemoryBudget::Create(10'000);
    std::atomic<std::size_t> granted{0};
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i != 4; ++i) {
            threads.emplace_back([&, held = budget] {
                for (int turn = 0; turn != 2000; ++turn)
                    if (held->RequestChunk(7, true) == 0) granted += 7;
            });
        }
    }
    EXPECT_EQ(granted, 10'000u / 7 * 7);
    EXPECT_EQ(budget->GetGranted(), granted);
    EXPECT_EQ(budget->GetRefused(), 4 * 2000 * 7 - granted);
}

TEST(MemoryBudget, ARefusedBufferSaysSo) {
    const BudgetPtr budget = MemoryBudget::Create(5000);
    const BufferPtr buffer = test::MakeBuffer(Implementation::kSingleThread, {.contract = budget.Get()});
    buffer->Allocate(8);
    try {
        buffer->Allocate(4096);
        ADD_FAILURE() << "8192 bytes came out of 5000";
    } catch (const ZBase::ContractManagerAllocException& refusal) {
        EXPECT_EQ(refusal.GetID(), 1816);
    }
}

}  // namespace
