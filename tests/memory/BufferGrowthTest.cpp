#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"
#include "tests/support/StandInBuffer.h"

namespace {

using test::Implementation;
using ZBase::BufferPtr;
using ZBase::LimitGrowth;

constexpr std::size_t kBlock = 4096;

class BufferGrowth : public testing::TestWithParam<Implementation> {
protected:
    BufferPtr Make(int growthBlocks) {
        return test::MakeBuffer(GetParam(), {.growthBlocks = growthBlocks, .contract = &mContract});
    }

    // The blocks of the chunks that `count` pieces of `size` bytes asked for.
    std::vector<std::size_t> Chunks(ZBase::Buffer& buffer, int count, std::size_t size = kBlock) {
        mContract.calls->clear();
        for (int i = 0; i != count; ++i) buffer.Allocate(size);
        std::vector<std::size_t> blocks;
        for (const test::BudgetCall& call : *mContract.calls)
            if (call.first == "RequestChunk") blocks.push_back(call.second / kBlock);
        return blocks;
    }

    test::RecordingContract mContract;
};

INSTANTIATE_TEST_SUITE_P(Both, BufferGrowth, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferGrowth, EndsAtTheLimitAndAnotherBufferGoesOn) {
    const BufferPtr limited = Make(1);
    const BufferPtr other = Make(1);
    EXPECT_TRUE(LimitGrowth(limited.get(), 4 * kBlock + 100));
    EXPECT_EQ(Chunks(*limited, 18), (std::vector<std::size_t>{1, 2, 3, 4, 4, 4}));
    EXPECT_EQ(Chunks(*other, 18), (std::vector<std::size_t>{1, 2, 3, 5, 8}));
}

TEST_P(BufferGrowth, ByZeroThereIsNone) {
    const BufferPtr buffer = Make(2);
    EXPECT_TRUE(LimitGrowth(buffer.get(), 0));
    EXPECT_EQ(Chunks(*buffer, 8), (std::vector<std::size_t>{2, 2, 2, 2}));
}

TEST_P(BufferGrowth, WhatIsLargerAlreadyStaysSo) {
    const BufferPtr buffer = Make(1);
    EXPECT_EQ(Chunks(*buffer, 6), (std::vector<std::size_t>{1, 2, 3}));
    EXPECT_TRUE(LimitGrowth(buffer.get(), 2 * kBlock));
    EXPECT_EQ(Chunks(*buffer, 10), (std::vector<std::size_t>{5, 5}));
}

TEST_P(BufferGrowth, APieceThatNeedsMoreStillGetsIt) {
    const BufferPtr buffer = Make(1);
    EXPECT_TRUE(LimitGrowth(buffer.get(), 2 * kBlock));
    EXPECT_EQ(Chunks(*buffer, 1, 50 * kBlock), (std::vector<std::size_t>{50}));
    EXPECT_NE(buffer->Allocate(8), nullptr);
}

TEST_P(BufferGrowth, OfABufferThatIsRefusedStopsAtTheLimit) {
    const BufferPtr buffer = Make(1);
    EXPECT_TRUE(LimitGrowth(buffer.get(), 3 * kBlock));
    mContract.chunkCode = 1816;
    for (int i = 0; i != 20; ++i) EXPECT_FALSE(buffer->EnsureAvailable(8));
    for (const test::BudgetCall& call : *mContract.calls) {
        if (call.first == "RequestChunk") {
            EXPECT_LE(call.second, 3 * kBlock);
        }
    }
}

TEST(BufferGrowthLimit, ReachesThroughADebuggingBuffer) {
    test::RecordingContract contract;
    {
        const BufferPtr buffer(ZBase::CreateDebugBuffer(0, 1, &contract, kBlock, false));
        EXPECT_TRUE(LimitGrowth(buffer.get(), kBlock));
        for (int i = 0; i != 3; ++i) buffer->Allocate(kBlock);
        EXPECT_EQ(buffer->GetTotalBytes(), 3 * kBlock);
    }
}

TEST(BufferGrowthLimit, IsRefusedWithoutABufferOfTheLibrary) {
    EXPECT_FALSE(LimitGrowth(nullptr, 1));
    struct : test::StandInBuffer {
        void* Allocate(std::size_t) override { return nullptr; }
    } standIn;
    EXPECT_FALSE(LimitGrowth(&standIn, 1));
}

}  // namespace
