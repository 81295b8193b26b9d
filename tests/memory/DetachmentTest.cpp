// The requests to governors and their credits when a buffer is detached while it takes chunks.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kChunk = 4096;

// Chunks of one size, each for one piece.
class Detachment : public testing::Test {
protected:
    void SetUp() override { Buffer::sGrowDanamically = false; }
    void TearDown() override {
        Buffer::sGrowDanamically = true;
        UnSetCallBackVirtualAlloc();
    }
};

// A governor and a contract that call `at` at each callback of the library, and count.
class Budget final : public MemoryContract {
public:
    explicit Budget(std::function<bool(const std::string&)> at) : mAt(std::move(at)) {
        mProxy.mRequest = [this](std::size_t bytes) {
            const bool granted = mAt("ask");
            if (granted) tAsked = bytes;
            return granted;
        };
        mProxy.mRelease = [this](std::size_t bytes) {
            credited += bytes;
            ++credits;
        };
        mProxy.mRefusalText = [](std::size_t) { return test::ToWide("no"); };
        RegisterMemGovernor(&mProxy);
    }
    ~Budget() override { UnregisterMemGovernor(&mProxy); }
    Budget(const Budget&) = delete;
    Budget& operator=(const Budget&) = delete;

    void AddRef() override {}
    void Release() override {}
    unsigned int Request(unsigned int) override { return 0; }
    void Settle(unsigned int) override {}
    unsigned int RequestChunk(std::size_t, bool) override { return mAt("request") ? 0 : 8; }
    void SettleChunk(std::size_t) override {
        if (!mAt("settle")) throw std::bad_alloc();
    }

    // One piece, that is one chunk; the result is counted.
    void Allocate(Buffer& buffer) {
        const std::size_t outer = std::exchange(tAsked, 0);
        try {
            buffer.Allocate(kChunk);
            came += kChunk;
            due += tAsked;
        } catch (const Message&) {
        } catch (const std::bad_alloc&) {
        }
        tAsked = outer;
    }

    std::atomic<std::size_t> due{0};  // bytes of the acquired chunks that the governor had a request for
    std::atomic<std::size_t> came{0};
    std::atomic<std::size_t> credited{0};
    std::atomic<int> credits{0};

private:
    static thread_local std::size_t tAsked;  // by the chunk being acquired

    std::function<bool(const std::string&)> mAt;
    MemGovernorProxy mProxy;
};

thread_local std::size_t Budget::tAsked = 0;

BufferPtr Make(Budget& budget) {
    return test::MakeBuffer(Implementation::kLockFree, {.contract = &budget});
}

// The choices of a run, each below the number of alternatives; the next run makes others.
class Choices {
public:
    std::size_t Next(std::size_t count) {
        if (mAt == mMade.size()) mMade.push_back({0, count});
        return mMade[mAt++].first;
    }

    // False when all have been made.
    bool GoOn() {
        while (!mMade.empty() && ++mMade.back().first == mMade.back().second) mMade.pop_back();
        mAt = 0;
        return !mMade.empty();
    }

private:
    std::vector<std::pair<std::size_t, std::size_t>> mMade;
    std::size_t mAt = 0;
};

// At each callback the buffer is detached, or takes another chunk, or is refused, or continues.
TEST_F(Detachment, CreditsAndDebitsBalanceWhateverHappensWithinAChunk) {
    Choices choices;
    int runs = 0;
    do {
        int depth = 0;
        int left = 6;  // callbacks with a choice
        Buffer* owner = nullptr;
        Budget* books = nullptr;
        Budget budget([&](const std::string&) {
            if (left == 0) return true;
            --left;
            switch (choices.Next(depth < 2 ? 4 : 3)) {
                case 1:
                    owner->DetachFromGovernors();
                    return true;
                case 2:
                    return false;
                case 3:
                    ++depth;
                    books->Allocate(*owner);
                    --depth;
                    return true;
                default:
                    return true;
            }
        });
        books = &budget;
        BufferPtr buffer = Make(budget);
        owner = buffer.get();
        for (int i = 0; i != 3; ++i) budget.Allocate(*buffer);
        EXPECT_EQ(buffer->GetTotalBytes(), budget.came);
        buffer.reset();
        EXPECT_EQ(budget.credited, budget.due);
        EXPECT_EQ(budget.credits, 1);
        ++runs;
    } while (choices.GoOn() && !HasFailure());
    EXPECT_GT(runs, 1000);
}

thread_local int tWho;
thread_local int tStops;

// Runs threads one at a time, each up to its next stop, in a given order.
class TurnTaker {
public:
    explicit TurnTaker(std::vector<int> order) : mOrder(std::move(order)) {}

    // For thread `who`: waits for its first turn.
    void Start(int who) {
        std::unique_lock lock(mMutex);
        mTurn.wait(lock, [&] { return mNext < mOrder.size() && mOrder[mNext] == who; });
    }

    // Ends the turn.
    void End() {
        const std::lock_guard lock(mMutex);
        ++mNext;
        mTurn.notify_all();
    }

    // Ends the turn and waits for the next.
    void Stop(int who) {
        End();
        Start(who);
    }

private:
    std::mutex mMutex;
    std::condition_variable mTurn;
    std::vector<int> mOrder;
    std::size_t mNext = 0;
};

// Two threads take a chunk each, with stops after the governor's grant and at the settling, and a third
// detaches: in each of the 140 orders of their seven steps.
TEST_F(Detachment, CreditsAndDebitsBalanceInEveryOrderOfThreeThreads) {
    std::vector<int> order = {0, 0, 0, 1, 1, 1, 2};
    int orders = 0;
    do {
        TurnTaker turns(order);
        Budget budget([&](const std::string& where) {
            if (where == "request") return true;
            turns.Stop(tWho);
            ++tStops;
            return true;
        });
        BufferPtr buffer = Make(budget);
        std::vector<std::thread> threads;
        for (int who = 0; who != 3; ++who)
            threads.emplace_back([&, who] {
                tWho = who;
                tStops = who == 2 ? 2 : 0;
                turns.Start(who);
                if (who == 2) {
                    buffer->DetachFromGovernors();
                } else {
                    budget.Allocate(*buffer);
                }
                // A chunk without a request to the governor has one stop less.
                for (; tStops != 2; ++tStops) turns.Stop(who);
                turns.End();
            });
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(buffer->GetTotalBytes(), 2 * kChunk);
        buffer.reset();
        EXPECT_EQ(budget.credited, budget.due);
        EXPECT_EQ(budget.credits, 1);
        ++orders;
    } while (std::next_permutation(order.begin(), order.end()) && !HasFailure());
    EXPECT_EQ(orders, 140);
}

TEST_F(Detachment, CreditsAndDebitsBalanceBesideManyThreads) {
    for (int round = 0; round != 300; ++round) {
        Budget budget([](const std::string&) { return true; });
        BufferPtr buffer = Make(budget);
        std::vector<std::thread> threads;
        for (int i = 0; i != 3; ++i)
            threads.emplace_back([&] {
                for (int piece = 0; piece != 30; ++piece) budget.Allocate(*buffer);
            });
        while (buffer->GetTotalBytes() < static_cast<std::size_t>(round % 80) * kChunk)
            std::this_thread::yield();
        buffer->DetachFromGovernors();
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(buffer->GetTotalBytes(), 90 * kChunk);
        buffer.reset();
        ASSERT_EQ(budget.credited, budget.due);
        ASSERT_EQ(budget.credits, 1);
    }
}

// Threads that do not exist in a forked child can't give the credit.
TEST_F(Detachment, ChildOfAProcessThatWasTakingAChunkGivesTheCreditAtOnce) {
    std::atomic<int> asked{0};
    std::atomic<bool> goOn{false};
    Budget budget([&](const std::string& where) {
        if (where == "ask" && ++asked == 2)
            while (!goOn) std::this_thread::yield();
        return true;
    });
    BufferPtr buffer = Make(budget);
    budget.Allocate(*buffer);
    std::thread other([&] { budget.Allocate(*buffer); });
    while (asked != 2) std::this_thread::yield();
    EXPECT_EXIT(
        {
            buffer->DetachFromGovernors();
            std::_Exit(budget.credits == 1 && budget.credited == kChunk ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    goOn = true;
    other.join();
}

// The thread that would give the credit with its chunk does not exist in the child.
class DetachmentInAChild : public Detachment {
protected:
    // Forks while a second chunk is being acquired in a detached buffer, and runs `child` there.
    void InChild(const std::function<bool(Budget&, BufferPtr&)>& child) {
        std::atomic<int> asked{0};
        std::atomic<bool> goOn{false};
        Budget budget([&](const std::string& where) {
            if (where == "ask" && ++asked == 2)
                while (!goOn) std::this_thread::yield();
            return true;
        });
        BufferPtr buffer = Make(budget);
        budget.Allocate(*buffer);
        std::thread other([&] { budget.Allocate(*buffer); });
        while (asked != 2) std::this_thread::yield();
        buffer->DetachFromGovernors();
        EXPECT_EQ(budget.credits, 0);
        EXPECT_EXIT(std::_Exit(child(budget, buffer) ? 0 : 1), testing::ExitedWithCode(0), "");
        goOn = true;
        other.join();
        EXPECT_EQ(budget.credits, 1);
        buffer->DetachFromGovernors();
        buffer.reset();
        EXPECT_EQ(budget.credits, 1);
        EXPECT_EQ(budget.credited, 2 * kChunk);
    }
};

TEST_F(DetachmentInAChild, IsGivenByTheDestructionInTheChild) {
    InChild([](Budget& budget, BufferPtr& buffer) {
        buffer.reset();
        return budget.credits == 1 && budget.credited == kChunk;
    });
}

TEST_F(DetachmentInAChild, IsGivenOnceByTheNextDetachmentInTheChild) {
    InChild([](Budget& budget, BufferPtr& buffer) {
        buffer->DetachFromGovernors();
        const bool isGiven = budget.credits == 1 && budget.credited == kChunk;
        buffer->DetachFromGovernors();
        buffer.reset();
        return isGiven && budget.credits == 1;
    });
}

// The credit comes from the thread with the last chunk being acquired, and so does its failure.
TEST_F(Detachment, GovernorWithoutAReleaseFailsTheChunkThatOwesTheCredit) {
    for (const bool refuses : {false, true}) {
        MemGovernorProxy proxy;
        Buffer* owner = nullptr;
        proxy.mRequest = [&](std::size_t) {
            owner->DetachFromGovernors();
            return !refuses;
        };
        proxy.mRefusalText = [](std::size_t) { return test::ToWide("no"); };
        BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree);
        owner = buffer.get();
        RegisterMemGovernor(&proxy);
        if (refuses) {
            EXPECT_THROW(buffer->Allocate(8), MemGoverningException);
        } else {
            EXPECT_THROW(buffer->Allocate(8), std::bad_function_call);
        }
        UnregisterMemGovernor(&proxy);
        EXPECT_EQ(buffer->GetUsedBytes(), 0u);
        EXPECT_EQ(buffer->GetTotalBytes(), 0u);
        buffer->Allocate(8);
        EXPECT_EQ(buffer->GetTotalBytes(), kChunk);
    }
}

}  // namespace
