// Many threads on one lock-free buffer.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitized = true;  // which keeps freed memory
#else
constexpr bool kAddressSanitized = false;
#endif

constexpr unsigned int kThreads = 8;

template <class Body>
void OnThreads(unsigned int count, Body body) {
    std::atomic<unsigned int> waiting{count};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i != count; ++i)
        threads.emplace_back([&, i] {
            --waiting;
            while (waiting != 0) std::this_thread::yield();
            body(i);
        });
    for (std::thread& thread : threads) thread.join();
}

struct Piece {
    char* start;
    std::size_t size;
};

constexpr std::size_t Rounded(std::size_t size) {
    return (size + 7) / 8 * 8;
}

// Mostly small sizes, up to 64 KiB.
std::size_t PickSize(std::mt19937& random) {
    const unsigned int kind = random() % 4096;
    return kind == 0 ? 1 + random() % 65536 : kind < 64 ? 1 + random() % 1024 : 1 + random() % 32;
}

// The ends of a piece name its owner; an overlapping neighbour would overwrite them.
void Mark(const Piece& piece, unsigned int thread) {
    piece.start[0] = static_cast<char>(thread + 1);
    piece.start[piece.size - 1] = static_cast<char>(thread + 1);
}

bool IsMarked(const Piece& piece, unsigned int thread) {
    return piece.start[0] == static_cast<char>(thread + 1) &&
           piece.start[piece.size - 1] == static_cast<char>(thread + 1);
}

TEST(LockFreeBufferThreads, TenMillionPiecesOfEightThreadsAreIntactAndApart) {
    const std::size_t perThread = (kAddressSanitized ? 200'000 : 10'000'000) / kThreads;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree);
    std::vector<std::vector<Piece>> pieces(kThreads);
    std::atomic<std::size_t> used{0};
    OnThreads(kThreads, [&](unsigned int thread) {
        std::mt19937 random(thread);
        pieces[thread].reserve(perThread);
        std::size_t sum = 0;
        for (std::size_t i = 0; i != perThread; ++i) {
            const std::size_t size = PickSize(random);
            const Piece piece{static_cast<char*>(buffer->Allocate(size)), size};
            Mark(piece, thread);
            pieces[thread].push_back(piece);
            sum += Rounded(size);
        }
        used += sum;
    });
    EXPECT_EQ(buffer->GetUsedBytes(), used);
    EXPECT_GE(buffer->GetTotalBytes(), used);

    std::vector<Piece> all;
    all.reserve(perThread * kThreads);
    for (unsigned int thread = 0; thread != kThreads; ++thread) {
        for (const Piece& piece : pieces[thread])
            if (!IsMarked(piece, thread)) FAIL() << "a piece of thread " << thread << " was written to";
        all.insert(all.end(), pieces[thread].begin(), pieces[thread].end());
        std::vector<Piece>().swap(pieces[thread]);
    }
    std::sort(all.begin(), all.end(), [](const Piece& a, const Piece& b) { return a.start < b.start; });
    for (std::size_t i = 0; i != all.size(); ++i) {
        if (reinterpret_cast<std::uintptr_t>(all[i].start) % 8 != 0) FAIL() << "not aligned";
        if (i != 0 && all[i - 1].start + Rounded(all[i - 1].size) > all[i].start) FAIL() << "overlap";
    }
}

TEST(LockFreeBufferThreads, SmallChunksArePublishedByAllThreadsAtOnce) {
    for (int round = 0; round != (kAddressSanitized ? 20 : 100); ++round) {
        Buffer::sGrowDanamically = false;
        BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.blockSize = 256});
        OnThreads(kThreads, [&](unsigned int thread) {
            for (int i = 0; i != 200; ++i) {
                const Piece piece{static_cast<char*>(buffer->Allocate(200)), 200};
                Mark(piece, thread);
                if (!IsMarked(piece, thread)) ADD_FAILURE();
            }
        });
        EXPECT_EQ(buffer->GetUsedBytes(), kThreads * 200u * 200u);
        // A chunk holds one piece of this size, so there can't be more.
        EXPECT_EQ(buffer->GetTotalBytes(), kThreads * 200u * 256u);
        Buffer::sGrowDanamically = true;
    }
}

TEST(LockFreeBufferThreads, ThreadsMayLookWhileOthersAllocate) {
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree);
    static std::atomic<int> cleanups;
    cleanups = 0;
    constexpr int kRounds = 20000;
    OnThreads(kThreads, [&](unsigned int thread) {
        std::mt19937 random(thread);
        std::size_t seen = 0;
        for (int i = 0; i != kRounds; ++i) {
            switch (thread) {
                case 0: {
                    const std::size_t used = buffer->GetUsedBytes();
                    if (used < seen) ADD_FAILURE() << "used bytes went down";
                    seen = used;
                    break;
                }
                case 1:
                    if (!buffer->EnsureAvailable(random() % 20000)) ADD_FAILURE();
                    break;
                case 2:
                    if (i % 16 == 0) buffer->AddCleanup([](void*) { ++cleanups; }, nullptr);
                    break;
                case 3: {
                    buffer->SetLimit(i % 2 == 0 ? 0 : std::int64_t{1} << 40);
                    const std::size_t kilobytes = buffer->GetTotalKB();  // the total only rises
                    if (buffer->GetTotalBytes() < kilobytes << 10) ADD_FAILURE() << "total went down";
                    break;
                }
                default: {
                    const Piece piece{static_cast<char*>(buffer->Allocate(1 + random() % 300)), 1};
                    Mark(piece, thread);
                }
            }
        }
    });
    buffer.reset();
    EXPECT_EQ(cleanups, kRounds / 16);
}

TEST(LockFreeBufferThreads, BigPiecesOfManyThreadsAreAllCounted) {
    constexpr std::size_t kGrowLimit = 268435456;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree);
    OnThreads(4, [&](unsigned int) {
        for (int i = 0; i != 4; ++i) buffer->Allocate(kGrowLimit);
    });
    EXPECT_EQ(buffer->GetUsedBytes(), 16 * (kGrowLimit + 24));
}

TEST(LockFreeBufferThreads, LockStopsAllThreads) {
    for (int round = 0; round != 50; ++round) {
        BufferPtr buffer =
            test::MakeBuffer(Implementation::kLockFree, {.blockSize = 256, .onBoundary = true});
        std::atomic<std::size_t> used{0};
        OnThreads(4, [&](unsigned int thread) {
            if (thread == 0) {
                while (buffer->GetTotalBytes() < static_cast<std::size_t>(round) * 1000)
                    std::this_thread::yield();
                buffer->Lock();
                return;
            }
            std::size_t sum = 0;
            try {
                while (true) {
                    buffer->Allocate(100);  // not written to: it may be locked by now
                    sum += 104;
                }
            } catch (const BufferException&) {
            }
            used += sum;
        });
        EXPECT_EQ(buffer->GetUsedBytes(), used);
    }
}

TEST(LockFreeBufferThreads, BudgetsSeeEveryByte) {
    test::RecordingContract contract;
    test::RecordingGovernor governor;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.contract = &contract, .blockSize = 256});
    OnThreads(kThreads, [&](unsigned int) {
        for (int i = 0; i != 20000; ++i) buffer->Allocate(64);
    });
    const std::size_t total = buffer->GetTotalBytes();
    std::size_t requested = 0;
    std::size_t settled = 0;
    for (const auto& [call, bytes] : *contract.calls) (call == "RequestChunk" ? requested : settled) += bytes;
    EXPECT_EQ(requested, total);
    EXPECT_EQ(settled, total);
    buffer.reset();
    EXPECT_EQ(governor.calls->back(), test::BudgetCall("governor releases", total));
    EXPECT_EQ(contract.references, 0);
}

TEST(LockFreeBufferThreads, OneOfManyDetachesAndTheGovernorsAreCreditedOnce) {
    test::RecordingGovernor governor;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1});
    governor.calls->clear();
    OnThreads(kThreads, [&](unsigned int) { buffer->DetachFromGovernors(); });
    EXPECT_EQ(*governor.calls, (test::BudgetCalls{{"governor releases", 4096}}));
}

}  // namespace
