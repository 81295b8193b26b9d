#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <type_traits>
#include <vector>

// Timers on the system's own clock, whatever its speed.

namespace {

using ZBase::Timer;
using ZBase::TotalTimer;

TEST(TimerClasses, AreCopiedFieldByField) {
    static_assert(std::is_trivially_copyable_v<Timer> && sizeof(Timer) == 8);
    static_assert(std::is_trivially_copyable_v<TotalTimer> && sizeof(TotalTimer) == 16);
    static_assert(std::is_copy_assignable_v<TotalTimer::Timer> && sizeof(TotalTimer::Timer) == 16);
    static_assert(std::is_copy_assignable_v<TotalTimer::Timer2> && sizeof(TotalTimer::Timer2) == 24);
    static_assert(std::is_copy_assignable_v<TotalTimer::Timer3> && sizeof(TotalTimer::Timer3) == 32);
    static_assert(!std::is_polymorphic_v<Timer> && !std::is_polymorphic_v<TotalTimer::Timer3>);
    static_assert(!std::is_nothrow_destructible_v<TotalTimer::Timer>);
}

TEST(TimerClasses, TotalStandsForATimerOverIt) {
    TotalTimer total;
    { const TotalTimer::Timer timer = total; }
    EXPECT_EQ(total.GetIncrementCount(), 1u);
}

TEST(TimerOfTheSystem, NeverGoesBack) {
    const Timer timer;
    std::uint64_t last = 0;
    for (int i = 0; i != 10000; ++i) {
        const std::uint64_t now = timer.GetAgeInMicroseconds();
        ASSERT_GE(now, last);
        last = now;
    }
}

TEST(TimerOfTheSystem, SeesASleep) {
    const Timer timer;
    TotalTimer total;
    {
        TotalTimer::Timer scoped(total);
        ZBase::Sleep(20);
    }
    EXPECT_GE(timer.GetAgeInMicroseconds(), 20000u);
    EXPECT_GE(timer.GetAgeInMilliseconds(), 20u);
    EXPECT_GE(total.GetTotalInMilliseconds(), 20u);
    EXPECT_LE(total.GetTotalInMicroseconds(), timer.GetAgeInMicroseconds());
    EXPECT_EQ(total.GetAverageInMicroseconds(), total.GetTotalInMicroseconds());
}

TEST(TimerOfTheSystem, MayBeReadByManyThreadsAtOnce) {
    const Timer timer;
    std::atomic<bool> wrong{false};
    std::vector<std::thread> threads;
    for (int i = 0; i != 8; ++i) {
        threads.emplace_back([&timer, &wrong] {
            std::uint64_t last = 0;
            for (int k = 0; k != 2000; ++k) {
                const std::uint64_t now = timer.GetAgeInMicroseconds();
                if (now < last) wrong = true;
                last = now;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_FALSE(wrong);
}

// Each thread has a total of its own; only the cache of the frequency is shared.
TEST(TimerOfTheSystem, TotalsOfSeveralThreadsStayApart) {
    std::vector<TotalTimer> totals(8);
    std::vector<std::thread> threads;
    for (TotalTimer& total : totals) {
        threads.emplace_back([&total] {
            for (int k = 0; k != 2000; ++k) {
                TotalTimer::Timer timer(total);
                total.GetTotalInMicroseconds();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    for (const TotalTimer& total : totals) EXPECT_EQ(total.GetIncrementCount(), 2000u);
}

}  // namespace
