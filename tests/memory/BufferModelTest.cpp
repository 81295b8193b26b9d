// Random programs of operations on a buffer and on its model, compared after each step.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <set>

#include "tests/memory/BufferModel.h"

namespace {

using namespace ZBase;
using test::BufferModel;
using test::BufferPtr;
using test::Implementation;
using test::ModelPiece;
using test::Refusal;

// The sanitizers shadow each of the chunks, and those are large.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned int kPrograms = 40;
#else
constexpr unsigned int kPrograms = 400;
#endif

// Page memory that is never touched, so that programs may request gigabytes. The start of each chunk is
// recorded here.
std::vector<char*> gChunkStarts;

void* TakePages(std::size_t size) {
    void* const memory = ZNTVirtualAlloc(size, false);
    gChunkStarts.push_back(static_cast<char*>(memory));
    return memory;
}

class Program {
public:
    Program(Implementation implementation, unsigned int seed) : mRandom(seed) {
        const std::size_t blockSize = 256u << Pick(6);
        const std::size_t growthBlocks = 1 + Pick(4);
        const std::size_t initialBlocks = Pick(4);
        if (implementation == Implementation::kLockFree) {
            mModel = std::make_unique<test::LockFreeModel>(blockSize, growthBlocks, true);
        } else {
            mModel = std::make_unique<test::SingleThreadModel>(blockSize, growthBlocks, true);
        }
        mGovernor.calls = mContract.calls;
        gChunkStarts.clear();
        mBuffer = MakeBuffer(implementation, {.initialBlocks = static_cast<int>(initialBlocks),
                                              .growthBlocks = static_cast<int>(growthBlocks),
                                              .contract = &mContract,
                                              .blockSize = blockSize,
                                              .onBoundary = true});
        mModel->Start(initialBlocks);
    }

    void Run(int steps) {
        for (int step = 0; step != steps && !testing::Test::HasFailure(); ++step) {
            Step();
            EXPECT_EQ(mBuffer->GetTotalBytes(), mModel->Total());
            EXPECT_EQ(mBuffer->GetUsedBytes(), mModel->Used());
        }
        EXPECT_EQ(*mContract.calls, mModel->Calls());
    }

private:
    std::size_t Pick(std::size_t below) { return mRandom() % below; }

    // Mostly small sizes, some as large as chunks, a few big ones.
    std::size_t PickSize() {
        switch (Pick(20)) {
            case 0:
                return Pick(4u << 20);
            case 1:
                return Pick(2) == 0 ? BufferModel::kGrowLimit - 16 + Pick(32) : Pick(64u << 20);
            case 2:
            case 3:
            case 4:
                return Pick(100000);
            default:
                return Pick(2000);
        }
    }

    void Step() {
        switch (Pick(40)) {
            case 0:
                return Refuse(static_cast<Refusal>(Pick(3)));
            case 1:
                return Refuse(Refusal::kNone);
            case 2:
                return Limit(Pick(3) == 0 ? mModel->Total() + Pick(3) - 1 : 0);
            case 3:
                Buffer::sGrowDanamically = mModel->grows = Pick(4) != 0;
                return;
            case 4:
                if (Pick(40) == 0) Detach();
                return;
            case 5:
                if (Pick(60) == 0) Lock();
                return;
            case 6:
            case 7:
            case 8:
            case 9:
                return Ensure(PickSize());
            default:
                return Allocate(PickSize());
        }
    }

    void Allocate(std::size_t size) {
        const std::optional<ModelPiece> expected = mModel->Allocate(size);
        char* piece = nullptr;
        try {
            piece = static_cast<char*>(mBuffer->Allocate(size));
        } catch (const Message&) {
        }
        ASSERT_EQ(piece != nullptr, expected.has_value()) << size;
        if (piece == nullptr) return;
        ASSERT_LT(expected->chunk, gChunkStarts.size());
        EXPECT_EQ(piece, gChunkStarts[expected->chunk] + expected->offset) << size;
    }

    void Ensure(std::size_t size) {
        EXPECT_EQ(mBuffer->EnsureAvailable(size), mModel->EnsureAvailable(size));
    }

    void Refuse(Refusal refusal) {
        mModel->refusal = refusal;
        mContract.chunkCode = refusal == Refusal::kContract ? 8 : 0;
        mGovernor.refuses = refusal == Refusal::kGovernor;
    }

    void Limit(std::size_t limit) {
        mModel->limit = limit;
        mBuffer->SetLimit(static_cast<std::int64_t>(limit));
    }

    void Detach() {
        if (mModel->detached) return;
        mModel->detached = true;
        const std::size_t before = mContract.calls->size();
        mBuffer->DetachFromGovernors();
        ASSERT_EQ(mContract.calls->size(), before + 1);
        EXPECT_EQ(mContract.calls->back(), test::BudgetCall("governor releases", mModel->Total()));
        mContract.calls->pop_back();
    }

    void Lock() {
        mModel->locked = true;
        mBuffer->Lock();
    }

    std::mt19937 mRandom;
    test::RecordingContract mContract;
    test::RecordingGovernor mGovernor;
    std::unique_ptr<BufferModel> mModel;
    BufferPtr mBuffer;
};

class BufferModelAndBuffer : public testing::TestWithParam<Implementation> {
protected:
    void SetUp() override { SetCallBackVirtualAlloc(TakePages); }
    void TearDown() override {
        UnSetCallBackVirtualAlloc();
        Buffer::sGrowDanamically = true;
    }
};

INSTANTIATE_TEST_SUITE_P(Both, BufferModelAndBuffer, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferModelAndBuffer, AgreeToTheByteOnRandomPrograms) {
    for (unsigned int seed = 0; seed != kPrograms && !HasFailure(); ++seed) {
        Buffer::sGrowDanamically = true;
        SCOPED_TRACE(seed);
        Program(GetParam(), seed).Run(300);
    }
}

// The step at the growth limit: chunks of 61446 blocks and more are the last that grow the next.
TEST_P(BufferModelAndBuffer, GrowthStopsAtTheLimit) {
    BufferPtr buffer = MakeBuffer(GetParam(), {.onBoundary = true});
    std::vector<std::size_t> chunks;
    while (chunks.size() < 30) {
        const std::size_t before = buffer->GetTotalBytes();
        // The largest piece that is not big fills chunks fast without being rounded to blocks of its own.
        while (buffer->GetTotalBytes() == before)
            buffer->Allocate(std::max<std::size_t>(before / 4, 4096) / 8 * 8);
        chunks.push_back(buffer->GetTotalBytes() - before);
        if (chunks.back() == 377524224) break;
    }
    EXPECT_EQ(chunks.back(), 92169u * 4096);
    EXPECT_NE(std::find(chunks.begin(), chunks.end(), 61446u * 4096), chunks.end());
}

}  // namespace
