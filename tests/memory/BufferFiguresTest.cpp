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

class Figures : public testing::TestWithParam<Implementation> {
protected:
    void ExpectMore(std::size_t chunks, std::size_t bytes, std::size_t onBoundary) const {
        const BufferFigures now = GetBufferFigures();
        EXPECT_EQ(now.heapChunks, mBefore.heapChunks + chunks);
        EXPECT_EQ(now.heapBytes, mBefore.heapBytes + bytes);
        EXPECT_EQ(now.onBoundaryBytes, mBefore.onBoundaryBytes + onBoundary);
    }

    const BufferFigures mBefore = GetBufferFigures();
};

INSTANTIATE_TEST_SUITE_P(Both, Figures, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(Figures, RiseByEachChunkAndFallWithTheBuffer) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.growthBlocks = 2});
    ExpectMore(0, 0, 0);
    buffer->Allocate(8);
    ExpectMore(1, 8192, 0);
    buffer->Allocate(8192);
    ExpectMore(2, 8192 + 3 * 4096, 0);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(Figures, TellWholePagesApart) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.initialBlocks = 2, .onBoundary = true});
    ExpectMore(0, 0, 8192);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(Figures, LeaveOutTheFirstChunkThatLiesWithTheBuffer) {
    BufferPtr buffer = test::MakeBuffer(GetParam(), {.initialBlocks = 1, .blockSize = 1024});
    ExpectMore(0, 0, 0);
    buffer->Allocate(4096);
    ExpectMore(1, 4096, 0);
    buffer.reset();
    ExpectMore(0, 0, 0);
}

TEST_P(Figures, DoNotCountWhatDidNotCome) {
    test::RecordingContract contract;
    contract.throwInSettleChunk = true;
    const BufferPtr buffer = test::MakeBuffer(GetParam(), {.contract = &contract});
    EXPECT_ANY_THROW(buffer->Allocate(8));
    ExpectMore(0, 0, 0);
}

TEST(FiguresOfThreads, ComeOutEvenInTheEnd) {
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
