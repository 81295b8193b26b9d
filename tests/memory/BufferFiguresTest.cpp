#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <thread>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using test::Implementation;
using ZBase::BufferFigures;
using ZBase::BufferPtr;
using ZBase::GetBufferFigures;

class BufferFiguresTest : public testing::TestWithParam<Implementation> {
protected:
    void ExpectMore(std::size_t chunks, std::size_t bytes, std::size_t onBoundary) const {
        const BufferFigures now = GetBufferFigures();
        EXPECT_EQ(now.heapChunks, mBefore.heapChunks + chunks);
        EXPECT_EQ(now.heapBytes, mBefore.heapBytes + bytes);
        EXPECT_EQ(now.onBoundaryBytes, mBefore.onBoundaryBytes + onBoundary);
    }

    const BufferFigures mBefore = GetBufferFigures();
};

INSTANTIATE_TEST_SUITE_P(Both, BufferFiguresTest, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferFiguresTest, RiseByEachChunkAndFallWithTheBuffer) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.growthBlocks = 2});
    ExpectMore(0, 0, 0);
    buffer->Allocate(8);
    ExpectMore(1, 8192, 0);
    buffer->Allocate(8192);
    ExpectMore(2, 8192 + 3 * 4096, 0);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(BufferFiguresTest, TellWholePagesApart) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.initialBlocks = 2, .onBoundary = true});
    ExpectMore(0, 0, 8192);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(BufferFiguresTest, LeaveOutTheFirstChunkThatLiesWithTheBuffer) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.initialBlocks = 1, .blockSize = 1024});
    ExpectMore(0, 0, 0);
    buffer->Allocate(4096);
    ExpectMore(1, 4096, 0);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(BufferFiguresTest, DoNotCountWhatDidNotCome) {
    test::RecordingContract contract;
    contract.throwInSettleChunk = true;
    const BufferPtr buffer = test::MakeBuffer(GetParam(), {.contract = &contract});
    EXPECT_ANY_THROW(buffer->Allocate(8));
    ExpectMore(0, 0, 0);
}

TEST(BufferFiguresOfThreads, ComeOutEvenInTheEnd) {
    const BufferFigures before = GetBufferFigures();
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i != 4; ++i) {
            threads.emplace_back([] {
                for (int turn = 0; turn != 200; ++turn) {
                    const BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree);
                    for (int piece = 0; piece != 20; ++piece) buffer->Allocate(1000);
                }
            });
        }
    }
    EXPECT_EQ(GetBufferFigures().heapChunks, before.heapChunks);
    EXPECT_EQ(GetBufferFigures().heapBytes, before.heapBytes);
}

}  // namespace
