#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BudgetCall;
using test::BudgetCalls;

const std::string kRefused = "No memory to be contracted. Contract request rejected.\n";

TEST(ContractManagerAllocator, PaysForWhatItTakesAndIsNotToldOfWhatGoesBack) {
    test::RecordingContract contract;
    ContractManagerAllocator<int> allocator(&contract);
    int* const memory = allocator.allocate(10);
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 40}, {"Settle", 40}}));
    allocator.deallocate(memory, 10);
    EXPECT_EQ(contract.calls->size(), 2u);
    EXPECT_EQ(contract.references, 0);
}

// A contract takes 32 bits.
TEST(ContractManagerAllocator, SizesBeyondThirtyTwoBitsAreAskedForAsTheLargest) {
    const std::pair<std::size_t, std::size_t> cases[] = {{0xFFFFFFFE, 0xFFFFFFFE},
                                                         {0xFFFFFFFF, 0xFFFFFFFF},
                                                         {0x100000000, 0xFFFFFFFF},
                                                         {0x100000010, 0xFFFFFFFF},
                                                         {0x7FFFFFFFFFFFFFFF, 0xFFFFFFFF}};
    for (const auto& [bytes, asked] : cases) {
        test::RecordingContract contract;
        contract.code = 8;
        EXPECT_THROW((void)ContractManagerAllocator<char>(&contract).allocate(bytes),
                     ContractManagerAllocException);
        EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", asked}}));
    }
}

TEST(ContractManagerAllocator, WhatNoMemoryCanHaveIsNotAskedFor) {
    test::RecordingContract contract;
    constexpr std::size_t kHalf = 0x8000000000000000;
    EXPECT_THROW((void)ContractManagerAllocator<char>(&contract).allocate(kHalf), std::bad_array_new_length);
    EXPECT_THROW((void)ContractManagerAllocator<int>(&contract).allocate(kHalf / 4),
                 std::bad_array_new_length);
    EXPECT_TRUE(contract.calls->empty());
}

TEST(ContractManagerAllocator, SizesBeyondThirtyTwoBitsAreSettledAsTheyWereAskedFor) {
    test::RecordingContract contract;
    ContractManagerAllocator<char> allocator(&contract);
    constexpr std::size_t bytes = 0x100000010;
    char* memory = nullptr;
    try {
        memory = allocator.allocate(bytes);  // never touched
    } catch (const std::bad_alloc&) {
        GTEST_SKIP() << "the machine has no such memory";
    }
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 0xFFFFFFFF}, {"Settle", 0xFFFFFFFF}}));
    allocator.deallocate(memory, bytes);
}

TEST(ContractManagerAllocator, WithoutAContractItIsTheHeap) {
    const std::size_t live = test::LiveBlocks();
    ContractManagerAllocator<char> allocator;
    char* const memory = allocator.allocate(10);
    EXPECT_EQ(test::LiveBlocks(), live + 1);
    allocator.deallocate(memory, 10);
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST(ContractManagerAllocator, RefusalIsThrownBeforeAnyMemoryIsTaken) {
    test::RecordingContract contract;
    contract.calls->reserve(10);
    contract.code = 5;
    const std::size_t live = test::LiveBlocks();
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<ContractManagerAllocException>>(
                  [&] { (void)ContractManagerAllocator<char>(&contract).allocate(10); }),
              kRefused + "System Error 0x00000005 (5): --- Access is denied.");
    EXPECT_EQ(test::LiveBlocks(), live);
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 10}}));
}

TEST(ContractManagerAllocator, AllocationThatFailsIsNotSettled) {
    test::RecordingContract contract;
    contract.calls->reserve(10);
    ContractManagerAllocator<char> allocator(&contract);
    {
        test::FailingAllocation failing(0);
        EXPECT_THROW((void)allocator.allocate(10), std::bad_alloc);
    }
    EXPECT_EQ(contract.calls->back(), BudgetCall("Request", 10));
    EXPECT_THROW(
        (void)ContractManagerAllocator<int>(&contract).allocate(static_cast<std::size_t>(-1) / 4 + 1),
        std::bad_array_new_length);
}

TEST(ContractManagerAllocator, SettlingThatThrowsGivesTheMemoryBack) {
    test::RecordingContract contract;
    contract.calls->reserve(10);
    contract.throwInSettle = true;
    const std::size_t live = test::LiveBlocks();
    EXPECT_THROW((void)ContractManagerAllocator<char>(&contract).allocate(10), int);
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
