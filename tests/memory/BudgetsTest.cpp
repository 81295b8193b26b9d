// Contracts and governors, and how a buffer handles their results.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <string>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BudgetCall;
using test::BudgetCalls;
using test::BufferPtr;
using test::Implementation;

const std::string kRefused = "No memory to be contracted. Contract request rejected.\n";

class Budgets : public testing::TestWithParam<Implementation> {
protected:
    BufferPtr Make(const test::BufferArguments& arguments = {}) {
        return test::MakeBuffer(GetParam(), arguments);
    }

    // Only the calls about chunks.
    static BudgetCalls ChunkCalls(const BudgetCalls& calls) {
        BudgetCalls chunks;
        std::copy_if(calls.begin(), calls.end(), std::back_inserter(chunks), [](const BudgetCall& call) {
            return call.first != "Request" && call.first != "Settle";
        });
        return chunks;
    }
};

INSTANTIATE_TEST_SUITE_P(Both, Budgets, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(Budgets, ContractIsHeldByOneReference) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
    EXPECT_EQ(contract.references, 1);
    buffer->Allocate(8);
    EXPECT_EQ(contract.references, 1);
    buffer.reset();
    EXPECT_EQ(contract.references, 0);
}

TEST_P(Budgets, ContractComesFirstThenTheGovernorsThenTheSettling) {
    test::RecordingContract contract;
    test::RecordingGovernor governor("governor", contract.calls);
    BufferPtr buffer = Make({.contract = &contract});
    buffer->Allocate(8);
    const BudgetCalls expected = {{"RequestChunk", 4096}, {"governor asks", 4096}, {"SettleChunk", 4096}};
    EXPECT_EQ(ChunkCalls(*contract.calls), expected);
    buffer->Allocate(8);  // pieces involve no budget
    EXPECT_EQ(ChunkCalls(*contract.calls), expected);
    buffer.reset();
    EXPECT_EQ(contract.calls->back(), BudgetCall("governor releases", 4096));
}

TEST_P(Budgets, OnBoundaryChunksAreAskedForInWholePages) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.contract = &contract, .blockSize = 256, .onBoundary = true});
    buffer->Allocate(8);
    EXPECT_EQ(ChunkCalls(*contract.calls), (BudgetCalls{{"RequestChunk", 4096}, {"SettleChunk", 4096}}));
}

TEST_P(Budgets, RefusalOfTheContractCarriesItsCode) {
    test::RecordingContract contract;
    contract.chunkCode = 8;
    BufferPtr buffer = Make({.contract = &contract});
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    try {
        buffer->Allocate(8);
        FAIL();
    } catch (const ExceptionImpl<ContractManagerAllocException>& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), 8);
        const std::string text = WideCharToUTF8(failure.GetMessage(), false).c_str();
        EXPECT_EQ(text, kRefused + WideCharToUTF8(GetSystemErrorDescription(8).c_str(), false).c_str());
        EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1);
    }
    for (const BudgetCall& call : *contract.calls) EXPECT_NE(call.first, "SettleChunk");
    EXPECT_EQ(buffer->GetTotalBytes(), 0u);
    contract.chunkCode = 0;
    buffer->Allocate(8);  // it still works
}

TEST_P(Budgets, RefusedFirstChunkComesOutOfTheFactory) {
    const std::size_t live = test::LiveBlocks();
    {
        test::RecordingContract contract;
        test::RecordingGovernor governor;
        contract.chunkCode = 0x80000001;
        try {
            Make({.initialBlocks = 1, .contract = &contract});
            FAIL();
        } catch (const ContractManagerAllocException& failure) {
            EXPECT_EQ(failure.GetErrorCode(), 0x80000001);
        }
        EXPECT_EQ(contract.references, 0);
        // The failed buffer is credited with the 0 bytes that it held.
        EXPECT_EQ(*governor.calls, (BudgetCalls{{"governor releases", 0}}));
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(Budgets, SettlingThatThrowsGivesTheMemoryBackAndLeavesTheBoundaryTotalRaised) {
    for (const bool onBoundary : {false, true}) {
        test::RecordingContract contract;
        BufferPtr buffer = Make({.contract = &contract, .onBoundary = onBoundary});
        if (!onBoundary) buffer->EnsureAvailable(std::size_t{1} << 40);  // allocates the chunk record as well
        contract.throwInSettleChunk = true;
        const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
        EXPECT_THROW(buffer->Allocate(8), int);
        EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held + (onBoundary ? 4096 : 0));
        EXPECT_EQ(buffer->GetTotalBytes(), 0u);
        EXPECT_EQ(buffer->GetUsedBytes(), 0u);
    }
}

TEST_P(Budgets, GovernorBeforeTheRefusingOneIsNotToldThatTheChunkDidNotCome) {
    // The order is that of the addresses.
    test::RecordingGovernor governors[2] = {test::RecordingGovernor("first"),
                                            test::RecordingGovernor("second")};
    governors[1].refuses = true;
    BufferPtr buffer = Make();
    try {
        buffer->Allocate(8);
        FAIL();
    } catch (const MemGoverningException& failure) {
        EXPECT_EQ(failure.GetDomain(), 300);
        EXPECT_EQ(failure.GetID(), -2147418588);
        EXPECT_STREQ(failure.GetTemplate(), "second refuses 4096");
    }
    EXPECT_EQ(*governors[0].calls, (BudgetCalls{{"first asks", 4096}}));
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    governors[1].refuses = false;
    EXPECT_TRUE(buffer->EnsureAvailable(8));
}

TEST_P(Budgets, GovernorsRefusalIsNotWrapped) {
    test::RecordingGovernor governor;
    governor.refuses = true;
    BufferPtr buffer = Make();
    bool plain = false;
    try {
        buffer->Allocate(8);
    } catch (const ExceptionImpl<MemGoverningException>&) {
    } catch (const Message&) {
        plain = true;
    }
    EXPECT_TRUE(plain);
}

TEST_P(Budgets, RefusalTextThatIsNoUnicodeTakesTheGovernorsPlaceAsAFailure) {
    test::RecordingGovernor governor;
    governor.refuses = true;
    governor.proxy.mRefusalText = [](std::size_t) { return WideString(1, 0xD800); };
    BufferPtr buffer = Make();
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<StringConversionException>>([&] { buffer->Allocate(8); }),
              "ZBase::WideCharToUnicodeValue: Invalid UNICODE value U+D800.");
}

TEST_P(Budgets, ContractThatSaidYesIsNotToldWhenTheGovernorSaysNo) {
    test::RecordingContract contract;
    test::RecordingGovernor governor("governor", contract.calls);
    governor.refuses = true;
    BufferPtr buffer = Make({.contract = &contract});
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(ChunkCalls(*contract.calls), (BudgetCalls{{"RequestChunk", 4096}, {"governor asks", 4096}}));
}

TEST_P(Budgets, GovernorWithoutARequestThrowsBadFunctionCall) {
    MemGovernorProxy proxy;
    BufferPtr buffer = Make();
    RegisterMemGovernor(&proxy);
    EXPECT_THROW(buffer->Allocate(8), std::bad_function_call);
    EXPECT_THROW(buffer->EnsureAvailable(8), std::bad_function_call);
    EXPECT_THROW(buffer->DetachFromGovernors(), std::bad_function_call);
    UnregisterMemGovernor(&proxy);
    buffer->Allocate(8);
}

TEST_P(Budgets, GovernorWithoutAReleaseThrowsOutOfDeleteAndNothingLeaks) {
    const std::size_t live = test::LiveBlocks();
    test::RecordingContract contract;
    contract.calls.reset(new BudgetCalls);
    {
        BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
        MemGovernorProxy proxy;
        RegisterMemGovernor(&proxy);
        EXPECT_THROW(buffer.release()->Delete(), std::bad_function_call);
        UnregisterMemGovernor(&proxy);
    }
    EXPECT_EQ(contract.references, 0);
    contract.calls.reset();
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(Budgets, RefusalComesOutOfTheFactoryAlsoFromAGovernorWithoutARelease) {
    const std::size_t live = test::LiveBlocks();
    {
        test::RecordingContract contract;
        MemGovernorProxy proxy;
        RegisterMemGovernor(&proxy);
        EXPECT_THROW(Make({.initialBlocks = 1, .contract = &contract}), std::bad_function_call);
        proxy.mRequest = [](std::size_t) { return false; };
        proxy.mRefusalText = [](std::size_t) { return test::ToWide("no"); };
        EXPECT_THROW(Make({.initialBlocks = 1, .contract = &contract}), MemGoverningException);
        UnregisterMemGovernor(&proxy);
        EXPECT_EQ(contract.references, 0);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(Budgets, ThrowingCleanupComesOutOfDeleteAlsoBesideAGovernorWithoutARelease) {
    BufferPtr buffer = Make();
    buffer->AddCleanup([](void*) { throw 5; }, nullptr);
    MemGovernorProxy proxy;
    RegisterMemGovernor(&proxy);
    EXPECT_THROW(buffer.release()->Delete(), int);
    UnregisterMemGovernor(&proxy);
}

TEST_P(Budgets, NullAndUnknownGovernorsChangeNothing) {
    RegisterMemGovernor(nullptr);
    MemGovernorProxy unknown;
    UnregisterMemGovernor(&unknown);
    UnregisterMemGovernor(nullptr);
    Make({.initialBlocks = 1});
}

TEST_P(Budgets, GovernorRegisteredTwiceIsAskedOnce) {
    test::RecordingGovernor governor;
    RegisterMemGovernor(&governor.proxy);
    Make({.initialBlocks = 1});
    EXPECT_EQ(*governor.calls, (BudgetCalls{{"governor asks", 4096}, {"governor releases", 4096}}));
}

TEST_P(Budgets, LateGovernorIsCreditedWithAllThatTheBufferHeld) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    test::RecordingGovernor governor;
    buffer->Allocate(4096);
    buffer->Allocate(4096);
    buffer.reset();
    EXPECT_EQ(*governor.calls, (BudgetCalls{{"governor asks", 4096}, {"governor releases", 8192}}));
}

TEST_P(Budgets, GovernorThatWasUnregisteredIsNotCreditedWithWhatItGranted) {
    test::RecordingGovernor governor;
    BufferPtr buffer = Make({.initialBlocks = 1});
    UnregisterMemGovernor(&governor.proxy);
    buffer->Allocate(4096);
    buffer->Allocate(4096);
    buffer.reset();
    EXPECT_EQ(*governor.calls, (BudgetCalls{{"governor asks", 4096}}));
}

TEST_P(Budgets, BudgetsAreAskedBeforeTheMemoryOfTheFirstChunkIsTaken) {
    std::size_t whenAsked = 0;
    test::RecordingGovernor governor;
    governor.proxy.mRequest = [&whenAsked](std::size_t) {
        whenAsked = test::AllocationCount();
        return true;
    };
    BufferPtr governed = Make({.initialBlocks = 1});
    EXPECT_EQ(test::AllocationCount() - whenAsked, 1u);

    UnregisterMemGovernor(&governor.proxy);
    test::RecordingContract contract;
    contract.calls->reserve(8);
    contract.inRequestChunk = [&whenAsked] { whenAsked = test::AllocationCount(); };
    BufferPtr contracted = Make({.initialBlocks = 1, .contract = &contract});
    EXPECT_EQ(test::AllocationCount() - whenAsked, 1u);
}

TEST_P(Budgets, EmptyBufferCreditsNothing) {
    test::RecordingGovernor governor;
    Make();
    EXPECT_EQ(*governor.calls, (BudgetCalls{{"governor releases", 0}}));
}

TEST_P(Budgets, DetachedBufferPaysOnlyItsContract) {
    test::RecordingContract contract;
    test::RecordingGovernor governor("governor", contract.calls);
    BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
    contract.calls->clear();
    EXPECT_FALSE(buffer->IsDetachedFromGovernors());
    buffer->DetachFromGovernors();
    EXPECT_TRUE(buffer->IsDetachedFromGovernors());
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"governor releases", 4096}}));
    buffer->DetachFromGovernors();
    contract.calls->clear();
    buffer->Allocate(5000);
    EXPECT_EQ(ChunkCalls(*contract.calls), (BudgetCalls{{"RequestChunk", 8192}, {"SettleChunk", 8192}}));
    contract.calls->clear();
    buffer.reset();
    EXPECT_TRUE(contract.calls->empty());
}

TEST_P(Budgets, LockAndLimitComeBeforeTheContract) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
    buffer->SetLimit(1);
    contract.calls->clear();
    EXPECT_FALSE(buffer->EnsureAvailable(5000));
    EXPECT_TRUE(ChunkCalls(*contract.calls).empty());
    buffer->SetLimit(0);
    buffer->Lock();
    EXPECT_FALSE(buffer->EnsureAvailable(5000));
    EXPECT_TRUE(ChunkCalls(*contract.calls).empty());
}

TEST(BudgetsContract, NeedsOnlyFourOperationsBesideTheReferenceCount) {
    class Counted final : public MemoryContract, public ZSynch::ReferenceCountedImpl<unsigned int> {
        unsigned int Request(unsigned int) override { return 0; }
        void Settle(unsigned int) override {}
        unsigned int RequestChunk(std::size_t, bool) override { return 0; }
        void SettleChunk(std::size_t) override {}
    };
    auto* const contract = new Counted;
    SmartPtrI<MemoryContract> holder(contract);
    holder->Refund(5);
    BufferPtr buffer =
        test::MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 1, .contract = holder.Get()});
    holder.Reset();
    buffer->Allocate(5000);
}

}  // namespace
