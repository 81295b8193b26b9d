#include <Base/diagnostics/detail/CallStackImp.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "tests/support/Sanitizers.h"

namespace {

using Section = ZBase::CallStackImp::CallStackCriticalSection;

TEST(CallStackCriticalSection, KeepsOtherThreadsOut) {
    Section section;
    int count = 0;  // without the lock, additions of several threads get lost
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round != 5000; ++round) {
                section.Lock();
                const int before = count;
                if (round % 100 == 0) std::this_thread::yield();
                count = before + 1;
                section.Unlock();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(count, 20000);
}

TEST(CallStackCriticalSection, IsTakenAgainByItsHolder) {
    Section section;
    section.Lock();
    section.Lock();
    section.Unlock();
    bool isHeld = true;
    std::thread other([&] {
        section.Lock();
        isHeld = false;
        section.Unlock();
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(isHeld);
    section.Unlock();
    other.join();
    EXPECT_FALSE(isHeld);
}

// The octets are copied unchanged: the copy of a free lock is free, whoever held the target before.
TEST(CallStackCriticalSection, AssignmentCopiesItsOctetsWithoutLocking) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "it knows locks by their places";
    Section free;
    Section held;
    held.Lock();
    std::thread([&] { free = free; }).join();
    Section copy;
    copy = held;  // held by this thread now, too
    bool isTaken = false;
    copy.Unlock();
    std::thread([&] {
        copy.Lock();
        isTaken = true;
        copy.Unlock();
    }).join();
    EXPECT_TRUE(isTaken);
    held = free;
    std::thread([&] {
        held.Lock();
        held.Unlock();
    }).join();
}

}  // namespace
