// Operations on a locked buffer.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kGrowLimit = 268435456;

// An object whose destructor writes to it.
struct Counted {
    std::string text = "longer than what a string holds within itself";
    int ends = 0;
    ~Counted() { ++ends; }
};

int gEnded;

void EndCounted(void* object) {
    static_cast<Counted*>(object)->~Counted();
    ++gEnded;
}

void WriteInto(void* piece) {
    static_cast<volatile char*>(piece)[0] = 1;
    ++gEnded;
}

class LockedBuffer : public testing::TestWithParam<Implementation> {
protected:
    LockedBuffer() { gEnded = 0; }
    BufferPtr Make(const test::BufferArguments& arguments = {.onBoundary = true}) {
        return test::MakeBuffer(GetParam(), arguments);
    }
};

INSTANTIATE_TEST_SUITE_P(Both, LockedBuffer, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(LockedBuffer, CleanupEndsAnObjectThatLiesInItsPages) {
    const std::size_t live = test::LiveBlocks();
    for (const bool onBoundary : {true, false}) {
        gEnded = 0;
        BufferPtr buffer = Make({.onBoundary = onBoundary});
        for (int i = 0; i != 40; ++i) {
            std::memset(buffer->Allocate(20000), 1, 20000);
            buffer->AddCleanup(EndCounted, new (buffer.get()) Counted);
        }
        buffer->Lock();
        buffer.reset();
        EXPECT_EQ(gEnded, 40);
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(LockedBuffer, CleanupWritesIntoABigPiece) {
    BufferPtr buffer = Make();
    buffer->AddCleanup(WriteInto, buffer->Allocate(kGrowLimit));
    buffer->Lock();
    buffer.reset();
    EXPECT_EQ(gEnded, 1);
}

TEST_P(LockedBuffer, CleanupsRunAlsoWhenOnlySomeOfItCouldBeLocked) {
    BufferPtr buffer = Make();
    buffer->AddCleanup(WriteInto, buffer->Allocate(100));
    buffer->Lock();
    SetCallBackVirtualProtect([](void*, std::size_t) { return 0; });
    EXPECT_THROW(buffer->Lock(), BufferException);
    UnSetCallBackVirtualProtect();
    buffer.reset();
    EXPECT_EQ(gEnded, 1);
}

TEST_P(LockedBuffer, CleanupThatThrowsPassesThroughAndTheMemoryGoesBack) {
    Make({.initialBlocks = 1, .onBoundary = true});  // so that the entries of pages have their page
    const std::size_t live = test::LiveBlocks();
    const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
    BufferPtr buffer = Make();
    auto* const object = new (buffer.get()) int(1);
    buffer->AddCleanup([](void* number) { throw(*static_cast<int*>(number) += 4); }, object);
    buffer->Lock();
    EXPECT_THROW(buffer.release()->Delete(), int);
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held);
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST_P(LockedBuffer, CleanupCanNotAllocateAndItsFailureComesOutOfDelete) {
    const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
    BufferPtr buffer = Make();
    buffer->Allocate(8);
    buffer->AddCleanup([](void* owner) { static_cast<Buffer*>(owner)->Allocate(8); }, buffer.get());
    buffer->Lock();
    EXPECT_EQ(test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer.release()->Delete(); }),
              "Attempted to allocate on a locked buffer.");
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held);
}

// Each sees the next one to run.
struct LockAgain {
    Buffer* owner;
    int turns;
};

TEST_P(LockedBuffer, CleanupMayLockTheBufferThatIsGoing) {
    BufferPtr buffer = Make();
    LockAgain state{buffer.get(), 0};
    for (int i = 0; i != 3; ++i) {
        auto* const pointer = new (buffer.get()) LockAgain*(&state);
        buffer->AddCleanup(
            [](void* argument) {
                auto** const place = static_cast<LockAgain**>(argument);
                LockAgain* const found = *place;
                *place = nullptr;
                ++found->turns;
                found->owner->Lock();
            },
            pointer);
    }
    buffer.reset();
    EXPECT_EQ(state.turns, 3);
}

TEST(LockedBufferOfOneThread, CleanupRegistersAnotherThatWritesIntoItsPages) {
    gEnded = 0;
    struct Pair {
        Buffer* owner;
        int number;
    };
    BufferPtr buffer = test::MakeBuffer(Implementation::kSingleThread, {.onBoundary = true});
    auto* const pair = new (buffer.get()) Pair{buffer.get(), 0};
    buffer->Lock();
    buffer->AddCleanup(
        [](void* argument) {
            auto* const found = static_cast<Pair*>(argument);
            found->number = 1;
            for (int i = 0; i != 100; ++i) found->owner->AddCleanup(WriteInto, &found->number);
        },
        pair);
    buffer.reset();
    EXPECT_EQ(gEnded, 100);
}

// Through the forwarding buffer, over each implementation; the choice is permanent, so each case is a process
// of its own.
using LockedBufferForDebuggingDeathTest = LockedBuffer;
INSTANTIATE_TEST_SUITE_P(Both, LockedBufferForDebuggingDeathTest, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

Buffer* gGoing;

void UseTheBufferThatGoes(void* piece) {
    WriteInto(piece);
    if (gEnded != 1) return;
    if (gGoing->GetUsedBytes() == 0) std::exit(3);
    gGoing->AddCleanup(WriteInto, gGoing->Allocate(100));
}

TEST_P(LockedBufferForDebuggingDeathTest, CleanupsReachTheirPieces) {
    const auto run = [&](bool locks) {
        SetFeatureEnabled("Base/UseLockFreeBuffer"_w, GetParam() == Implementation::kLockFree);
        NotifyFeatureFlagMgrInitialized();
        gGoing = CreateDebugBuffer(1, 1, nullptr, 0, true);
        // A chunk with whole pages.
        std::memset(gGoing->Allocate(100000), 1, 100000);
        void* const piece = static_cast<char*>(gGoing->Allocate(100000)) + 50000;
        gGoing->AddCleanup(locks ? WriteInto : UseTheBufferThatGoes, piece);
        if (locks) gGoing->Lock();
        gGoing->Delete();
        std::exit(gEnded == (locks ? 1 : 2) ? 0 : 1);
    };
    EXPECT_EXIT(run(true), testing::ExitedWithCode(0), "");
    EXPECT_EXIT(run(false), testing::ExitedWithCode(0), "");
}

// The chunk of a big piece is acquired while another thread locks: the piece is valid, but its node, which is
// read-only by then, is not written.
TEST(LockedBufferOfManyThreads, BigPieceThatIsUnderWayIsHandedOutAndCounted) {
    Buffer* owner = nullptr;
    test::RecordingContract contract;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree,
                                        {.initialBlocks = 1, .contract = &contract, .onBoundary = true});
    owner = buffer.get();
    contract.inRequestChunk = [&] { owner->Lock(); };
    const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
    auto* const piece = static_cast<char*>(buffer->Allocate(kGrowLimit));
    piece[0] = piece[kGrowLimit - 1] = 1;
    EXPECT_EQ(buffer->GetUsedBytes(), 24 + kGrowLimit);
    EXPECT_EQ(buffer->GetTotalBytes(), 4096 + kGrowLimit);
    EXPECT_THROW(buffer->Allocate(8), BufferException);
    buffer.reset();
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), held - 4096);
}

TEST(LockedBufferOfManyThreads, CleanupWhoseNodeCameTooLateIsRefused) {
    gEnded = 0;
    Buffer* owner = nullptr;
    test::RecordingContract contract;
    BufferPtr buffer =
        test::MakeBuffer(Implementation::kLockFree, {.contract = &contract, .onBoundary = true});
    owner = buffer.get();
    contract.inRequestChunk = [&] { owner->Lock(); };
    static char target;
    EXPECT_EQ(
        test::TextOfFailure<ExceptionImpl<BufferException>>([&] { buffer->AddCleanup(WriteInto, &target); }),
        "Attempted to allocate on a locked buffer.");
    buffer.reset();
    EXPECT_EQ(gEnded, 0);
}

}  // namespace
