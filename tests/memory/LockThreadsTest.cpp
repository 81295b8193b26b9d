// `Lock` during all other operations of many threads on one lock-free buffer.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <thread>
#include <vector>

#include "tests/support/Buffers.h"
#include "tests/support/Sanitizers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kGrowLimit = 268435456;

// The most operations of a thread until the lock, which may take long on a busy machine. A sanitizer keeps
// shadow memory for each byte of a big piece.
constexpr int kMostCalls = 10000;
constexpr int kMostBigPieces = 4;
constexpr int kBigRounds = test::kIsSanitized ? 30 : 300;

std::atomic<int> gCleanups;

BufferPtr Make(std::size_t blockSize) {
    return test::MakeBuffer(Implementation::kLockFree,
                            {.initialBlocks = 1, .blockSize = blockSize, .onBoundary = true});
}

// Repeats `operation` until the buffer is locked or it has succeeded `most` times; returns the number of
// successes.
template <class Operation>
int UntilLocked(int most, Operation operation) {
    int done = 0;
    try {
        for (; done != most; ++done) operation();
    } catch (const BufferException&) {
    } catch (const std::bad_alloc&) {  // of big pieces
    }
    return done;
}

// Runs `operation` on two threads, at most `most` times on each, and locks after a delay that differs between
// rounds.
template <class Operation>
int LockBeside(Buffer& buffer, int round, int most, Operation operation) {
    std::atomic<int> done{0};
    std::atomic<int> ready{0};
    std::vector<std::thread> threads;
    for (int i = 0; i != 2; ++i)
        threads.emplace_back([&] {
            ++ready;
            done += UntilLocked(most, operation);
        });
    while (ready != 2) std::this_thread::yield();
    for (int i = 0; i != round * 7 % 100; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
    if (round % 3 == 0) std::this_thread::yield();
    buffer.Lock();
    for (std::thread& thread : threads) thread.join();
    return done;
}

TEST(LockThreads, CleanupIsEitherRegisteredOrRefused) {
    for (int round = 0; round != 1000; ++round) {
        gCleanups = 0;
        BufferPtr buffer = Make(round % 2 == 0 ? 256 : 65536);
        const int registered = LockBeside(*buffer, round, kMostCalls, [&buffer] {
            buffer->AddCleanup([](void*) { ++gCleanups; }, nullptr);
        });
        EXPECT_GE(buffer->GetUsedBytes(), static_cast<std::size_t>(registered) * 24);
        buffer.reset();
        ASSERT_EQ(gCleanups, registered);
    }
}

TEST(LockThreads, BigPieceIsEitherHandedOutOrRefused) {
    for (int round = 0; round != kBigRounds; ++round) {
        const std::size_t held = Buffer::GetOnBoundaryAllocTotal();
        BufferPtr buffer = Make(4096);
        const int pieces =
            LockBeside(*buffer, round, kMostBigPieces, [&buffer] { (void)buffer->Allocate(kGrowLimit); });
        EXPECT_GE(buffer->GetUsedBytes(), static_cast<std::size_t>(pieces) * (kGrowLimit + 24));
        buffer.reset();
        ASSERT_EQ(Buffer::GetOnBoundaryAllocTotal(), held);
    }
}

TEST(LockThreads, AllKindsOfCallsBesideIt) {
    for (int round = 0; round != kBigRounds; ++round) {
        gCleanups = 0;
        std::atomic<int> registered{0};
        std::atomic<int> calls{0};
        std::atomic<int> bigPieces{0};
        BufferPtr buffer = Make(256);
        LockBeside(*buffer, round, kMostCalls, [&] {
            const int call = calls++;
            switch (call % 8) {
                case 0:
                    buffer->AddCleanup([](void*) { ++gCleanups; }, nullptr);
                    ++registered;
                    break;
                case 1:
                    (void)buffer->Allocate(5000);
                    break;
                case 2:
                    (void)buffer->EnsureAvailable(3000);
                    break;
                case 3:
                    (void)buffer->GetUsedBytes();
                    break;
                case 4:
                    if (call % 64 == 4 && ++bigPieces <= 2 * kMostBigPieces)
                        (void)buffer->Allocate(kGrowLimit);
                    break;
                default:
                    (void)buffer->Allocate(100);  // not written to: it may be locked by now
            }
        });
        buffer.reset();
        ASSERT_EQ(gCleanups, registered);
    }
}

}  // namespace
