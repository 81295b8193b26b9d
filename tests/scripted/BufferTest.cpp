// The buffers with a system whose every call can fail.

#include <Base/ZBase.h>
#include <Base/memory/detail/BufferImplementation.h>

#include <gtest/gtest.h>

#include <new>
#include <string>
#include <vector>

#include "tests/scripted/ScriptedPages.h"
#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::gPages;
using test::Implementation;
using test::kScriptedPageSize;
using test::PageCall;

class BufferOverScript : public testing::TestWithParam<Implementation> {
protected:
    BufferOverScript() { gPages = {}; }

    BufferPtr Make(const test::BufferArguments& arguments = {.onBoundary = true}) {
        return test::MakeBuffer(GetParam(), arguments);
    }

    // A buffer of three chunks, and their addresses, oldest first.
    BufferPtr MakeThree(std::vector<const void*>& starts) {
        BufferPtr buffer = Make();
        for (int i = 0; i != 3; ++i) starts.push_back(buffer->Allocate(100000));
        return buffer;
    }

    static std::string Failure(Buffer& buffer) {
        return test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer.Lock(); });
    }
};

INSTANTIATE_TEST_SUITE_P(Both, BufferOverScript, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

std::vector<const void*> Addresses(const std::vector<PageCall>& calls) {
    std::vector<const void*> addresses;
    for (const PageCall& call : calls) addresses.push_back(call.address);
    return addresses;
}

TEST_P(BufferOverScript, ChunksAreRoundedToThePagesOfTheSystem) {
    BufferPtr buffer = Make();
    buffer->Allocate(8);
    EXPECT_EQ(buffer->GetTotalBytes(), kScriptedPageSize);
    buffer->Allocate(kScriptedPageSize + 1);
    EXPECT_EQ(buffer->GetTotalBytes(), 3 * kScriptedPageSize);
}

TEST_P(BufferOverScript, EveryFailingAllocationOfPagesLeavesTotalsRight) {
    const std::size_t before = Buffer::GetOnBoundaryAllocTotal();
    for (int failing = 0; failing != 6; ++failing) {
        gPages = {};
        BufferPtr buffer = Make();
        gPages.failingAllocation = failing;
        std::size_t used = 0;
        int failures = 0;
        for (int i = 0; i != 6; ++i) {
            const std::size_t total = buffer->GetTotalBytes();
            try {
                buffer->Allocate(1000000);
                used += 1000000;
            } catch (const std::bad_alloc&) {
                ++failures;
                EXPECT_EQ(buffer->GetTotalBytes(), total);
            }
            EXPECT_EQ(buffer->GetUsedBytes(), used);
            EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before + buffer->GetTotalBytes());
        }
        EXPECT_EQ(failures, 1);
        buffer.reset();
        EXPECT_EQ(gPages.held, 0);
        EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before);
    }
}

TEST_P(BufferOverScript, ContractAndGovernorAreNotToldThatThePagesDidNotCome) {
    test::RecordingContract contract;
    test::RecordingGovernor governor("governor", contract.calls);
    BufferPtr buffer = Make({.contract = &contract, .onBoundary = true});
    gPages.failingAllocation = 0;
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(contract.calls->back(), test::BudgetCall("governor asks", kScriptedPageSize));
    buffer.reset();
    EXPECT_EQ(contract.calls->back(), test::BudgetCall("governor releases", 0));
}

TEST_P(BufferOverScript, SettlingThatThrowsGivesThePagesBack) {
    test::RecordingContract contract;
    contract.throwInSettleChunk = true;
    BufferPtr buffer = Make({.contract = &contract, .onBoundary = true});
    EXPECT_THROW(buffer->Allocate(8), int);
    EXPECT_EQ(gPages.held, 0);
}

TEST_P(BufferOverScript, FailedProtectionTellsWhichAndLeavesTheOthersProtected) {
    for (int failing = 0; failing != 3; ++failing) {
        gPages = {};
        std::vector<const void*> starts;
        BufferPtr buffer = MakeThree(starts);
        gPages.failingProtection = failing;
        const bool lockFree = GetParam() == Implementation::kLockFree;
        EXPECT_EQ(Failure(*buffer), lockFree ? "Unable to lock buffer (slot)" : "Unable to lock buffer");
        EXPECT_EQ(Addresses(gPages.Calls("protect")),
                  std::vector<const void*>(starts.begin(), starts.begin() + failing + 1));
        EXPECT_EQ(buffer->EnsureAvailable(8), !lockFree);
        buffer->Lock();
        EXPECT_FALSE(buffer->EnsureAvailable(8));
        buffer.reset();
        EXPECT_EQ(gPages.held, 0);
    }
}

TEST_P(BufferOverScript, ChunksOfALockedBufferAreMadeWritableBeforeTheyGoBack) {
    std::vector<const void*> starts;
    BufferPtr buffer = MakeThree(starts);
    buffer->Lock();
    gPages.calls.clear();
    buffer.reset();
    ASSERT_EQ(gPages.calls.size(), 6u);
    for (std::size_t i = 0; i != 3; ++i) {
        EXPECT_EQ(gPages.calls[2 * i].name, "unprotect");
        EXPECT_EQ(gPages.calls[2 * i].address, starts[i]);
        EXPECT_EQ(gPages.calls[2 * i + 1].name, "release");
        EXPECT_EQ(gPages.calls[2 * i + 1].address, starts[i]);
    }
}

std::vector<std::string> Names(const std::vector<PageCall>& calls) {
    std::vector<std::string> names;
    for (const PageCall& call : calls) names.push_back(call.name);
    return names;
}

void NoteCleanup(void*) {
    gPages.calls.push_back({"cleanup", nullptr, 0});
}

TEST_P(BufferOverScript, ChunksOfALockedBufferAreMadeWritableBeforeItsCleanupsRun) {
    std::vector<const void*> starts;
    BufferPtr buffer = MakeThree(starts);
    for (int i = 0; i != 2; ++i) buffer->AddCleanup(NoteCleanup, nullptr);
    buffer->Lock();
    gPages.calls.clear();
    buffer.reset();
    EXPECT_EQ(Names(gPages.calls), (std::vector<std::string>{"unprotect", "unprotect", "unprotect", "cleanup",
                                                             "cleanup", "release", "release", "release"}));
    EXPECT_EQ(Addresses(gPages.Calls("unprotect")), starts);
}

TEST_P(BufferOverScript, ChunkThatStaysReadOnlyIsTriedAgainForEachCleanupAndWhenItGoesBack) {
    std::vector<const void*> starts;
    BufferPtr buffer = MakeThree(starts);
    buffer->AddCleanup(NoteCleanup, nullptr);
    buffer->Lock();
    gPages.calls.clear();
    gPages.failingUnprotection = 1;
    buffer.reset();
    EXPECT_EQ(Names(gPages.calls),
              (std::vector<std::string>{"unprotect", "unprotect", "unprotect", "cleanup", "unprotect",
                                        "release", "unprotect", "release", "unprotect", "release"}));
    EXPECT_EQ(gPages.held, 0);
}

TEST_P(BufferOverScript, ChunkThatStaysReadOnlyIsNotGivenToTheHeap) {
    gPages.calls.reserve(20);
    void* starts[3];
    const std::size_t live = test::LiveBlocks();
    BufferPtr buffer = Make({});
    for (void*& start : starts) start = buffer->Allocate(100000);
    buffer->Lock();
    gPages.failingUnprotection = 1;
    buffer.reset();
    EXPECT_EQ(test::LiveBlocks(), live + 1);
    operator delete(starts[1]);
}

TEST_P(BufferOverScript, PagesThatStayReadOnlyGoBackAllTheSame) {
    std::vector<const void*> starts;
    BufferPtr buffer = MakeThree(starts);
    buffer->Lock();
    gPages.failingUnprotection = 1;
    buffer.reset();
    EXPECT_EQ(Addresses(gPages.Calls("release")), starts);
    EXPECT_EQ(gPages.held, 0);
}

TEST_P(BufferOverScript, ChunksOfABufferThatWasNeverLockedAreNotProtectedAnew) {
    Make({.initialBlocks = 1, .onBoundary = true})->Allocate(8);
    EXPECT_TRUE(gPages.Calls("unprotect").empty());
    EXPECT_EQ(gPages.held, 0);
}

TEST(BufferImplementationOverScript, EmptyEntriesArePassedOnToLockAndDecommit) {
    gPages = {};
    auto* const buffer =
        static_cast<BufferImplementation*>(CreateBufferSingleThread(0, 1, nullptr, 256, true));
    const void* const first = buffer->Allocate(8);
    gPages.failingAllocation = 0;
    EXPECT_FALSE(buffer->EnsureAvailable(100000));
    const void* const second = buffer->Allocate(100000);
    buffer->DeCommitChunk();
    EXPECT_EQ(Addresses(gPages.Calls("decommit")), (std::vector<const void*>{first, nullptr, second}));
    EXPECT_EQ(gPages.Calls("decommit")[1].size, 0u);
    buffer->Lock();
    EXPECT_EQ(Addresses(gPages.Calls("protect")), (std::vector<const void*>{first, nullptr, second}));
    EXPECT_EQ(gPages.Calls("protect")[1].size, 0u);
    buffer->Delete();
    EXPECT_EQ(gPages.held, 0);
}

TEST(BufferImplementationOverScript, DecommitGivesEveryChunkWholeAndStopsAtTheOneThatFails) {
    gPages = {};
    auto* const buffer =
        static_cast<BufferImplementation*>(CreateBufferSingleThread(0, 1, nullptr, 256, true));
    std::vector<const void*> starts;
    for (int i = 0; i != 3; ++i) starts.push_back(buffer->Allocate(100000));
    gPages.failingDecommit = 1;
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer->DeCommitChunk(); }),
              "DeCommitChunk error");
    EXPECT_EQ(Addresses(gPages.Calls("decommit")), (std::vector<const void*>{starts[0], starts[1]}));
    EXPECT_EQ(gPages.Calls("decommit")[0].size, 7 * kScriptedPageSize);
    buffer->Delete();
}

TEST(BufferLockFreeOverScript, BigAllocationsAreProtectedAndGivenBackBeforeTheSlotsNewestPageFirst) {
    constexpr std::size_t kGrowLimit = 268435456;
    gPages = {};
    Buffer::sGrowDanamically = false;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.blockSize = 256, .onBoundary = true});
    std::vector<const void*> slots;
    for (int i = 0; i != 17; ++i) slots.push_back(buffer->Allocate(kScriptedPageSize));
    // The node of the big allocation takes the eighteenth slot.
    const void* const big = buffer->Allocate(kGrowLimit);
    const PageCall nodes = gPages.Calls("allocate")[17];
    EXPECT_EQ(nodes.size, kScriptedPageSize);
    buffer->Lock();
    const std::vector<const void*> locked = Addresses(gPages.Calls("protect"));
    ASSERT_EQ(locked.size(), 19u);
    EXPECT_EQ(locked[0], big);
    EXPECT_EQ(locked[1], slots[16]);
    EXPECT_EQ(locked[3], slots[0]);
    buffer.reset();
    EXPECT_EQ(Addresses(gPages.Calls("release")), locked);
    EXPECT_EQ(gPages.held, 0);
    Buffer::sGrowDanamically = true;
}

}  // namespace
