// Tests that hold for both implementations of a buffer.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferArguments;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

class BufferOfAnyKind : public testing::TestWithParam<Implementation> {
protected:
    BufferPtr Make(const BufferArguments& arguments = {}) { return test::MakeBuffer(GetParam(), arguments); }
};

INSTANTIATE_TEST_SUITE_P(Both, BufferOfAnyKind, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferOfAnyKind, BlockSizeIsAtLeast256AndAMultipleOf256) {
    const std::pair<std::size_t, std::size_t> cases[] = {{1, 256},     {255, 256},  {256, 256}, {257, 512},
                                                         {511, 512},   {512, 512},  {513, 768}, {4095, 4096},
                                                         {4096, 4096}, {4097, 4352}};
    for (const auto& [asked, given] : cases) {
        BufferPtr buffer = Make({.initialBlocks = 1, .blockSize = asked});
        EXPECT_EQ(buffer->GetTotalBytes(), given) << asked;
    }
}

TEST_P(BufferOfAnyKind, BlockSizeOfZeroMeansTheDefaultAtTheTimeOfTheCall) {
    const std::size_t before = Buffer::sDefaultBlockSize;
    EXPECT_EQ(Make({.initialBlocks = 1, .blockSize = 0})->GetTotalBytes(), before);
    Buffer::sDefaultBlockSize = 1000;
    EXPECT_EQ(Make({.initialBlocks = 1, .blockSize = 0})->GetTotalBytes(), 1024u);
    Buffer::sDefaultBlockSize = 0;
    EXPECT_EQ(Make({.initialBlocks = 1, .blockSize = 0})->GetTotalBytes(), 256u);
    Buffer::sDefaultBlockSize = before;
}

TEST_P(BufferOfAnyKind, DefaultBlockSizeIsThatOfTheEnvironmentAtLoad) {
    SetEnvironmentVariable("ZENT_BUFFER_BLOCK_SIZE"_w, "8192"_w);
    EXPECT_EQ(Make({.initialBlocks = 1, .blockSize = 0})->GetTotalBytes(), 4096u);
    SetEnvironmentVariable("ZENT_BUFFER_BLOCK_SIZE"_w, nullptr);
}

TEST_P(BufferOfAnyKind, WithoutInitialBlocksThereIsNoMemoryUntilTheFirstPiece) {
    for (const int none : {0, -1, std::numeric_limits<int>::min()}) {
        BufferPtr buffer = Make({.initialBlocks = none, .growthBlocks = none});
        EXPECT_EQ(buffer->GetTotalBytes(), 0u);
        buffer->Allocate(8);
        EXPECT_EQ(buffer->GetTotalBytes(), 4096u);  // a growth of less than one block counts as one
    }
}

TEST_P(BufferOfAnyKind, InitialChunkDoesNotGrowTheNext) {
    BufferPtr buffer = Make({.initialBlocks = 2});
    EXPECT_EQ(buffer->GetTotalBytes(), 8192u);
    buffer->Allocate(8192);
    buffer->Allocate(4096);
    EXPECT_EQ(buffer->GetTotalBytes(), 8192u + 4096u);
    buffer->Allocate(8192);
    EXPECT_EQ(buffer->GetTotalBytes(), 8192u + 4096u + 8192u);
}

TEST_P(BufferOfAnyKind, PieceOfNothingTakesEightBytes) {
    BufferPtr buffer = Make();
    EXPECT_NE(buffer->Allocate(0), nullptr);
    EXPECT_EQ(buffer->GetUsedBytes(), 8u);
    buffer->Allocate(1);
    EXPECT_EQ(buffer->GetUsedBytes(), 16u);
}

TEST_P(BufferOfAnyKind, PiecesStandSideBySideRoundedToEight) {
    BufferPtr buffer = Make();
    auto* const first = static_cast<char*>(buffer->Allocate(13));
    auto* const second = static_cast<char*>(buffer->Allocate(13));
    EXPECT_EQ(second - first, 16);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(first) % 8, 0u);
    EXPECT_EQ(buffer->GetUsedBytes(), 32u);
}

TEST_P(BufferOfAnyKind, RoundingStepsBehindEachMultipleOfEight) {
    for (std::size_t size = 1; size <= 64; ++size) {
        BufferPtr buffer = Make();
        buffer->Allocate(size);
        EXPECT_EQ(buffer->GetUsedBytes(), (size + 7) / 8 * 8) << size;
    }
}

TEST_P(BufferOfAnyKind, ChunksGrowByHalfRoundedUp) {
    BufferPtr buffer = Make();
    std::size_t total = 0;
    for (const std::size_t blocks : {1, 2, 3, 5, 8, 12, 18, 27, 41, 62, 93, 140}) {
        buffer->Allocate(blocks * 4096);  // exactly fills the next chunk
        total += blocks * 4096;
        EXPECT_EQ(buffer->GetTotalBytes(), total);
    }
}

TEST_P(BufferOfAnyKind, PieceAboveTheNextChunkGetsItsRoundedBlocksAndGrowthIsAsEver) {
    BufferPtr buffer = Make();
    buffer->Allocate(10000);
    EXPECT_EQ(buffer->GetTotalBytes(), 12288u);
    buffer->Allocate(12288 - 10000 + 8);
    EXPECT_EQ(buffer->GetTotalBytes(), 12288u + 8192u);
}

TEST_P(BufferOfAnyKind, ChunksOfOneSizeWhenGrowthIsOff) {
    Buffer::sGrowDanamically = false;
    BufferPtr buffer = Make({.growthBlocks = 3, .blockSize = 256});
    for (std::size_t chunks = 1; chunks != 20; ++chunks) {
        buffer->Allocate(768);
        EXPECT_EQ(buffer->GetTotalBytes(), chunks * 768);
    }
    Buffer::sGrowDanamically = true;
}

TEST_P(BufferOfAnyKind, KilobytesAreRoundedDown) {
    BufferPtr buffer = Make({.initialBlocks = 1, .blockSize = 1280});
    EXPECT_EQ(buffer->GetTotalKB(), 1u);
    buffer->Allocate(1016);
    EXPECT_EQ(buffer->GetUsedKB(), 0u);
    buffer->Allocate(8);
    EXPECT_EQ(buffer->GetUsedKB(), 1u);
}

TEST_P(BufferOfAnyKind, EnsureAvailableBringsAChunkAndHandsNothingOut) {
    BufferPtr buffer = Make();
    EXPECT_TRUE(buffer->EnsureAvailable(100));
    EXPECT_EQ(buffer->GetUsedBytes(), 0u);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
    buffer->Allocate(100);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
    EXPECT_TRUE(buffer->EnsureAvailable(4096 - 104));
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
    EXPECT_TRUE(buffer->EnsureAvailable(4096 - 103));
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u + 8192u);
}

TEST_P(BufferOfAnyKind, EnsuredSizeIsRoundedAsAPieceIs) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    buffer->Allocate(4096 - 8);
    EXPECT_TRUE(buffer->EnsureAvailable(0));
    EXPECT_TRUE(buffer->EnsureAvailable(8));
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
}

TEST_P(BufferOfAnyKind, LimitMayBePassedByOneChunk) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    buffer->SetLimit(4096);
    buffer->Allocate(4096);
    buffer->Allocate(4096);  // the total is at the limit, which is allowed
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer->Allocate(8192); }),
              "The buffer memory usage is over the predefined limit.");
    EXPECT_FALSE(buffer->EnsureAvailable(8192));
    EXPECT_EQ(buffer->GetTotalBytes(), 8192u);
    EXPECT_EQ(buffer->GetUsedBytes(), 8192u);
    buffer->SetLimit(8192);
    buffer->Allocate(8192);
}

TEST_P(BufferOfAnyKind, LimitIsTestedOnlyWhereAChunkIsNeeded) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    buffer->SetLimit(1);
    buffer->Allocate(4096);
    EXPECT_THROW(buffer->Allocate(1), BufferException);
}

TEST_P(BufferOfAnyKind, NegativeLimitIsNone) {
    for (const std::int64_t none :
         {std::int64_t{0}, std::int64_t{-5}, std::numeric_limits<std::int64_t>::min()}) {
        BufferPtr buffer = Make();
        buffer->SetLimit(1);
        buffer->SetLimit(none);
        for (int i = 0; i != 5; ++i) buffer->Allocate(4096);
    }
}

TEST_P(BufferOfAnyKind, LimitFailureSaysWhatAndWho) {
    BufferPtr buffer = Make({.initialBlocks = 1});
    buffer->SetLimit(1);
    try {
        buffer->Allocate(5000);
        FAIL();
    } catch (const ExceptionImpl<BufferException>& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), -1);
    }
}

TEST_P(BufferOfAnyKind, LockedBufferRefusesAndStaysReadable) {
    BufferPtr buffer = Make({.onBoundary = true});
    auto* const piece = static_cast<char*>(buffer->Allocate(100));
    std::strcpy(piece, "kept");
    buffer->Lock();
    EXPECT_STREQ(piece, "kept");
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer->Allocate(8); }),
              "Attempted to allocate on a locked buffer.");
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(buffer->GetUsedBytes(), 104u);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
}

TEST_P(BufferOfAnyKind, LockedEmptyBufferRefuses) {
    BufferPtr buffer = Make();
    buffer->Lock();
    EXPECT_THROW(buffer->Allocate(8), BufferException);
    EXPECT_FALSE(buffer->EnsureAvailable(8));
}

TEST_P(BufferOfAnyKind, LockingTwiceIsLocking) {
    BufferPtr buffer = Make({.initialBlocks = 1, .onBoundary = true});
    buffer->Lock();
    buffer->Lock();
    EXPECT_THROW(buffer->Allocate(8), BufferException);
}

using BufferOfAnyKindDeathTest = BufferOfAnyKind;
INSTANTIATE_TEST_SUITE_P(Both, BufferOfAnyKindDeathTest, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferOfAnyKindDeathTest, WriteIntoALockedPieceFaults) {
    BufferPtr buffer = Make({.onBoundary = true});
    auto* const piece = static_cast<volatile char*>(buffer->Allocate(100));
    *piece = 'a';
    buffer->Lock();
    EXPECT_DEATH(*piece = 'b', "");
}

TEST_P(BufferOfAnyKind, LockedThenDestroyedOnTheHeapLeavesTheHeapHealthy) {
    for (int round = 0; round != 20; ++round) {
        BufferPtr buffer = Make({.initialBlocks = 4});
        for (int i = 0; i != 50; ++i) std::memset(buffer->Allocate(5000), i, 5000);
        buffer->Lock();
        buffer.reset();
        // The next owner of the memory can write to it.
        std::vector<std::vector<char>> others;
        for (int i = 0; i != 60; ++i) others.emplace_back(5000, static_cast<char>(i));
    }
}

TEST_P(BufferOfAnyKind, SmallRegionThatNobodyPaysForIsOneHeapBlock) {
    const std::size_t live = test::LiveBlocks();
    for (const std::size_t blockSize : {std::size_t{256}, std::size_t{4096}}) {
        const std::size_t before = test::AllocationCount();
        BufferPtr buffer =
            Make({.initialBlocks = static_cast<int>(4096 / blockSize), .blockSize = blockSize});
        std::memset(buffer->Allocate(4096), 1, 4096);
        EXPECT_EQ(test::AllocationCount() - before, 1u);
        EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
        EXPECT_EQ(buffer->GetUsedBytes(), 4096u);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

// A lock protects whole pages, and a small chunk is next to its buffer object.
TEST_P(BufferOfAnyKind, SmallChunkIsNeverAWholePage) {
    std::vector<BufferPtr> buffers;
    for (int i = 0; i != 3000; ++i) {
        BufferPtr& buffer = buffers.emplace_back(Make({.initialBlocks = 1, .blockSize = 4096}));
        EXPECT_NE(reinterpret_cast<std::uintptr_t>(buffer->Allocate(4096)) % 4096, 0u);
        buffer->Lock();
        buffer->SetLimit(1);
        EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
    }
}

TEST_P(BufferOfAnyKind, LockedHeapBufferLeavesItsNeighboursWritable) {
    std::vector<std::vector<char>> neighbours;
    std::vector<BufferPtr> buffers;
    for (int i = 0; i != 64; ++i) {
        neighbours.emplace_back(3000);
        buffers.push_back(Make({.initialBlocks = 1, .blockSize = 5120}));
        neighbours.emplace_back(3000);
    }
    for (auto& buffer : buffers) buffer->Lock();
    for (auto& neighbour : neighbours) std::memset(neighbour.data(), 1, neighbour.size());
}

TEST_P(BufferOfAnyKind, LockedThenDestroyedOnBoundaryGivesItsPagesBack) {
    const std::size_t before = Buffer::GetOnBoundaryAllocTotal();
    for (int round = 0; round != 20; ++round) {
        BufferPtr buffer = Make({.onBoundary = true});
        for (int i = 0; i != 50; ++i) std::memset(buffer->Allocate(5000), i, 5000);
        buffer->Lock();
    }
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before);
}

TEST_P(BufferOfAnyKind, OnBoundaryChunksAreWholeZeroedPages) {
    std::size_t page = 0;
    GetSymPageSize(&page);
    const std::size_t before = Buffer::GetOnBoundaryAllocTotal();
    BufferPtr buffer = Make({.blockSize = 256, .onBoundary = true});
    auto* const piece = static_cast<const unsigned char*>(buffer->Allocate(200));
    EXPECT_EQ(buffer->GetTotalBytes(), page);
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before + page);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece) % page, 0u);
    for (int i = 0; i != 200; ++i) EXPECT_EQ(piece[i], 0);
    buffer->Allocate(page);  // the whole page can be used, but 200 bytes of it are
    EXPECT_EQ(buffer->GetTotalBytes(), 2 * page);
    buffer.reset();
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before);
}

TEST_P(BufferOfAnyKind, PlacementOperatorsTakePieces) {
    struct Widget {
        int values[5];
    };
    BufferPtr buffer = Make();
    auto* const widget = new (buffer.get()) Widget{{1, 2, 3, 4, 5}};
    EXPECT_EQ(buffer->GetUsedBytes(), 24u);
    auto* const letters = new (buffer.get()) char[10];
    EXPECT_EQ(letters - reinterpret_cast<char*>(widget), 24);
    EXPECT_EQ(buffer->GetUsedBytes(), 40u);
    EXPECT_EQ(widget->values[4], 5);
    operator delete(widget, buffer.get());
    operator delete[](letters, buffer.get());
    EXPECT_EQ(buffer->GetUsedBytes(), 40u);
}

TEST_P(BufferOfAnyKind, ThrowingConstructorLeavesItsPieceSpent) {
    struct Thrower {
        Thrower() { throw std::runtime_error("no"); }
        char bytes[40];
    };
    BufferPtr buffer = Make();
    EXPECT_THROW((void)new (buffer.get()) Thrower, std::runtime_error);
    EXPECT_EQ(buffer->GetUsedBytes(), 40u);
}

TEST_P(BufferOfAnyKind, StringOverABufferLeavesItsOldBlocksThere) {
    BufferPtr buffer = Make();
    WideString text{Allocator<unsigned short>(buffer.get())};
    std::size_t used = 0;
    for (int i = 0; i != 100; ++i) {
        text.push_back(static_cast<unsigned short>('a' + i % 26));
        EXPECT_GE(buffer->GetUsedBytes(), used);
        used = buffer->GetUsedBytes();
    }
    EXPECT_GT(used, 200u);
}

TEST_P(BufferOfAnyKind, SizesAtTheEndOfTheRangeFailAskNobodyAndChangeNothing) {
    test::RecordingContract contract;
    BufferPtr buffer = Make({.initialBlocks = 1, .contract = &contract});
    buffer->Allocate(8);
    contract.calls->clear();
    std::vector<std::size_t> sizes = {kMax / 2 + 1, kMax / 2 + 2, kMax - 8192, kMax - 1000000};
    for (std::size_t below = 0; below != 5000; ++below) sizes.push_back(kMax - below);
    for (const std::size_t size : sizes) {
        EXPECT_THROW(buffer->Allocate(size), std::bad_alloc) << size;
        EXPECT_FALSE(buffer->EnsureAvailable(size)) << size;
    }
    EXPECT_TRUE(contract.calls->empty());
    EXPECT_EQ(buffer->GetTotalBytes(), 4096u);
    EXPECT_EQ(buffer->GetUsedBytes(), 8u);
}

TEST_P(BufferOfAnyKind, BlocksThatDoNotFitInASizeFail) {
    for (const std::size_t blockSize : {kMax, kMax - 255, kMax - 256, kMax / 2, kMax / 2 + 1}) {
        EXPECT_THROW(Make({.initialBlocks = 3, .blockSize = blockSize}), std::bad_alloc) << blockSize;
        BufferPtr buffer = Make({.growthBlocks = 3, .blockSize = blockSize});
        EXPECT_THROW(buffer->Allocate(8), std::bad_alloc) << blockSize;
        EXPECT_FALSE(buffer->EnsureAvailable(8)) << blockSize;
        EXPECT_EQ(buffer->GetTotalBytes(), 0u);
    }
    EXPECT_THROW(Make({.initialBlocks = std::numeric_limits<int>::max(), .blockSize = kMax / 4}),
                 std::bad_alloc);
}

TEST_P(BufferOfAnyKind, AllocationFailuresReadBadAllocation) {
    for (const bool onBoundary : {false, true}) {
        BufferPtr buffer = Make({.onBoundary = onBoundary});
        try {
            buffer->Allocate(kMax / 2 - 5000);
            FAIL();
        } catch (const std::bad_alloc& failure) {
            EXPECT_STREQ(failure.what(), "bad allocation");
        }
    }
}

TEST_P(BufferOfAnyKind, EveryFailingAllocationLeavesAWorkingBuffer) {
    const std::size_t live = test::LiveBlocks();
    test::ForEachFailingAllocation([&] {
        BufferPtr buffer;
        try {
            buffer = Make({.initialBlocks = 1, .blockSize = 256});
        } catch (const std::bad_alloc&) {
            return;
        }
        std::size_t used = 0;
        for (int i = 0; i != 20; ++i) {  // enough chunks for a second page of slots
            try {
                buffer->Allocate(10000);
                used += 10000;
            } catch (const std::bad_alloc&) {
            }
            EXPECT_EQ(buffer->GetUsedBytes(), used);
            EXPECT_GE(buffer->GetTotalBytes(), used);
        }
        try {
            buffer->AddCleanup([](void*) {}, nullptr);
        } catch (const std::bad_alloc&) {
        }
        buffer->EnsureAvailable(1000000);
        buffer->Allocate(8);
    });
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(BufferOfAnyKind, EveryFailingAllocationOnBoundaryLeavesAWorkingBuffer) {
    Make({.initialBlocks = 1,
          .onBoundary = true});  // so that later page allocations need no further page for entries
    const std::size_t live = test::LiveBlocks();
    const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
    test::ForEachFailingAllocation([&] {
        try {
            BufferPtr buffer = Make({.initialBlocks = 1, .onBoundary = true});
            for (int i = 0; i != 20; ++i) buffer->Allocate(10000);
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(test::LiveBlocks(), live);
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held);
}

TEST_P(BufferOfAnyKind, ThrowingCleanupPassesThroughAfterTheMemoryHasGone) {
    Make({.initialBlocks = 1,
          .onBoundary = true});  // so that later page allocations need no further page for entries
    const std::size_t live = test::LiveBlocks();
    const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
    BufferPtr buffer = Make({.initialBlocks = 1, .onBoundary = true});
    buffer->AddCleanup([](void*) { throw 5; }, nullptr);
    EXPECT_THROW(buffer.release()->Delete(), int);
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held);
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(BufferOfAnyKind, CleanupCanStillReadItsPieces) {
    static int seen;
    seen = 0;
    BufferPtr buffer = Make();
    auto* const number = new (buffer.get()) int(42);
    buffer->AddCleanup([](void* argument) { seen = *static_cast<int*>(argument); }, number);
    buffer.reset();
    EXPECT_EQ(seen, 42);
}

}  // namespace
