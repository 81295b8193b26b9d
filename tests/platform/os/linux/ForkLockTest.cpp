#include <Base/platform/os/linux/processes/ForkLock.h>

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

#include "tests/support/RefusedCalls.h"

namespace {

using namespace ZBase;

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

}  // namespace
