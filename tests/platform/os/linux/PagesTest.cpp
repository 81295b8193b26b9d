#include <Base/platform/os/linux/memory/PageRegistry.h>
#include <Base/platform/os/linux/processes/ForkLock.h>
#include <Base/platform/os/memory/Pages.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <utility>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

namespace {

using namespace ZBase;

constexpr int kForks = 200;

/// Threads that repeat an operation until the end of the test.
class Busy {
public:
    template <class Body>
    Busy(int threads, Body body) {
        for (int i = 0; i != threads; ++i) {
            mThreads.emplace_back([this, body] {
                while (!mStop) body();
            });
        }
    }
    ~Busy() {
        mStop = true;
        for (std::thread& thread : mThreads) thread.join();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
};

bool UsePages() {
    char* const pages = static_cast<char*>(os::AllocatePages(3 * os::PageSize()));
    if (pages == nullptr) return false;
    std::memset(pages, 1, 3 * os::PageSize());
    return os::ProtectPages(pages, 1) && os::UnprotectPages(pages + os::PageSize() - 1, 2) &&
           os::DecommitPages(pages + 2 * os::PageSize(), 1) && os::ReleasePages(pages);
}

TEST(Pages, NeedNoHeap) {
    const test::FailingAllocation failing(0);
    for (int i = 0; i != 2000; ++i) ASSERT_TRUE(UsePages());
    EXPECT_FALSE(failing.HasFailed());
}

TEST(Pages, AreGivenInEachChildOfABusyProcess) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    const Busy busy(3, [] { UsePages(); });
    for (int i = 0; i != kForks; ++i) ASSERT_EQ(test::InChild([] { return UsePages() ? 0 : 1; }), 0) << i;
}

// Such a child is made without fork handlers.
TEST(Pages, AreGivenInEachChildThatWasMadeWithoutHandlers) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    const Busy busy(3, [] { UsePages(); });
    for (int i = 0; i != kForks; ++i) {
        const pid_t child = _Fork();
        if (child == 0) {
            alarm(60);
            _exit(UsePages() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0) << i;
    }
}

TEST(Pages, OfTheParentCanBeGivenBackInAChild) {
    char* const pages = static_cast<char*>(os::AllocatePages(1));
    *pages = 'p';
    EXPECT_EQ(test::InChild([pages] {
                  return *pages == 'p' && os::ReleasePages(pages) && !os::ReleasePages(pages) ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(os::ReleasePages(pages));
}

TEST(ForkLock, LetsOneThreadIn) {
    static constinit os::ForkLock lock;
    long count = 0;  // guarded by the lock
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back([&count] {
            for (int k = 0; k != 20000; ++k) {
                const std::lock_guard guard(lock);
                ++count;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(count, 80000);
}

TEST(ForkLock, IsFreeInAChildOfAProcessThatHoldsIt) {
    static constinit os::ForkLock lock;
    lock.lock();
    for (int i = 0; i != 2; ++i) {
        EXPECT_EQ(test::InChild([] {
                      lock.lock();
                      lock.unlock();
                      return 0;
                  }),
                  0);
    }
    lock.unlock();
    lock.lock();  // still valid here
    lock.unlock();
}

// Compared with a plain map.
TEST(PageRegistry, KnowsWhatWasAddedAndNotTaken) {
    static constinit os::PageRegistry registry;
    std::map<std::uintptr_t, std::uintptr_t> model;
    std::mt19937 random(20);
    for (int step = 0; step != 40000; ++step) {
        const std::uintptr_t start = (1 + random() % 3000) * 0x10000;
        if (random() % 2 == 0) {
            if (model.contains(start)) continue;
            model[start] = start + 0x1000 * (1 + random() % 16);
            ASSERT_TRUE(registry.Add(start, model[start]));
        } else {
            os::PageRegistry::Entry* const entry = registry.Take(start);
            ASSERT_EQ(entry != nullptr, model.erase(start) == 1) << step;
            if (entry != nullptr) registry.Drop(entry);
        }
        const std::uintptr_t asked = random() % (3002 * 0x10000);
        auto expected = model.upper_bound(asked);
        const bool any = expected != model.begin() && asked < (--expected)->second;
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        ASSERT_EQ(registry.Find(asked, from, to), any) << step;
        if (any) {
            ASSERT_EQ(std::pair(from, to), std::pair(expected->first, expected->second));
        }
    }
}

TEST(PageRegistry, TakesBackWhatCouldNotBeReleased) {
    static constinit os::PageRegistry registry;
    ASSERT_TRUE(registry.Add(0x10000, 0x12000));
    os::PageRegistry::Entry* const entry = registry.Take(0x10000);
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    EXPECT_FALSE(registry.Find(0x11FFF, from, to));
    registry.Restore(entry);
    EXPECT_TRUE(registry.Find(0x11FFF, from, to));
    EXPECT_EQ(registry.Take(0x11000), nullptr);
    EXPECT_EQ(registry.Take(0x10000), entry);
    registry.Drop(entry);
}

}  // namespace
