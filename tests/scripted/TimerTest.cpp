#include <Base/platform/Timer.h>
#include <Base/platform/TotalTimer.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <limits>
#include <utility>

#include "tests/scripted/ScriptedFailure.h"
#include "tests/scripted/TimersOverScript.h"
#include "tests/support/System.h"

namespace {

using test::TimerOverScript;
using test::TimersOverScript;
using ZBase::Timer;
using ZBase::TotalTimer;

constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST_F(TimerOverScript, ReadsTheTimeSinceItsConstruction) {
    test::gClock.ticks = 5000;
    const Timer timer;
    EXPECT_EQ(timer.GetAgeInMicroseconds(), 0u);
    Pass(1999);
    EXPECT_EQ(timer.GetAgeInMicroseconds(), 1999000u);
    EXPECT_EQ(timer.GetAgeInMilliseconds(), 1999u);
    EXPECT_EQ(timer.GetAgeInSeconds(), 1u);
}

TEST_F(TimerOverScript, ResetStartsAnew) {
    Timer timer;
    Pass(700);
    timer.ResetTimer();
    Pass(30);
    EXPECT_EQ(timer.GetAgeInMilliseconds(), 30u);
}

TEST_F(TimerOverScript, CopiesAndMovesKeepTheStart) {
    Timer timer;
    Pass(10);
    Timer other;
    Pass(10);
    other = std::move(timer);
    EXPECT_EQ(other.GetAgeInMilliseconds(), 20u);
    EXPECT_EQ(timer.GetAgeInMilliseconds(), 20u);  // moving copies
    EXPECT_EQ(Timer(other).GetAgeInMilliseconds(), 20u);
}

TEST_F(TimerOverScript, SpanIsRightAcrossTheWrapOfTheCounter) {
    test::gClock.ticks = kLargest - 1;
    const Timer timer;
    Pass(5);
    EXPECT_EQ(test::gClock.ticks, 3u);
    EXPECT_EQ(timer.GetAgeInMilliseconds(), 5u);
}

// The largest span whose microseconds do not wrap is (2^64 - 1) / 10^6 = 18446744073709 ticks.
TEST_F(TimerOverScript, MicrosecondsWrapOneTickBeyondTheirLimit) {
    const Timer timer;
    Pass(18446744073709);
    EXPECT_EQ(timer.GetAgeInMicroseconds(), 18446744073709000u);
    EXPECT_EQ(timer.GetAgeInSeconds(), 18446744073u);
    Pass(1);
    // 18446744073710 * 10^6 - 2^64 = 448384, over 1000
    EXPECT_EQ(timer.GetAgeInMicroseconds(), 448u);
    EXPECT_EQ(timer.GetAgeInMilliseconds(), 0u);
    EXPECT_EQ(timer.GetAgeInSeconds(), 0u);
}

constexpr char16_t kCounterFailure[] =
    u"::QueryPerformanceCounter failed\nSystem Error 0x00000032 (50): --- Not here.";
constexpr char16_t kFrequencyFailure[] =
    u"::QueryPerformanceFrequency failed\nSystem Error 0x00000032 (50): --- Not here.";

TEST_F(TimersOverScript, EveryReadingFailsWithTheCounter) {
    Timer timer;
    TotalTimer total;
    TotalTimer::Timer stopped(total);
    stopped.Stop();
    test::SetSystemError(50, "Not here.");
    test::gClock.counterFails = true;
    test::ExpectFailure([] { Timer(); }, 50, kCounterFailure);
    test::ExpectFailure([&] { timer.ResetTimer(); }, 50, kCounterFailure);
    test::ExpectFailure([&] { timer.GetAgeInMicroseconds(); }, 50, kCounterFailure);
    test::ExpectFailure([&] { TotalTimer::Timer one(total); }, 50, kCounterFailure);
    test::ExpectFailure([&] { TotalTimer::Timer2 two(total, total); }, 50, kCounterFailure);
    test::ExpectFailure([&] { TotalTimer::Timer3 three(total, total, total); }, 50, kCounterFailure);
    EXPECT_EQ(total.GetIncrementCount(), 1u);
}

TEST_F(TimersOverScript, EndOfARunningTimerThrowsWhenTheCounterFails) {
    TotalTimer total;
    test::SetSystemError(50, "Not here.");
    const auto fail = [] { test::gClock.counterFails = true; };
    const auto one = [&] {
        const TotalTimer::Timer timer(total);
        fail();
    };
    const auto two = [&] {
        const TotalTimer::Timer2 timer(total, total);
        fail();
    };
    const auto three = [&] {
        const TotalTimer::Timer3 timer(total, total, total);
        fail();
    };
    test::ExpectFailure(one, 50, kCounterFailure);
    test::gClock.counterFails = false;
    test::ExpectFailure(two, 50, kCounterFailure);
    test::gClock.counterFails = false;
    test::ExpectFailure(three, 50, kCounterFailure);
    EXPECT_EQ(total.GetIncrementCount(), 0u);
}

// The life of a timer whose `Stop` fails after 5 ticks and that ends well 2 ticks later.
template <class ScopedTimer, class... Totals>
void FailToStopAndEnd(Totals&... totals) {
    ScopedTimer timer(totals...);
    test::gClock.ticks += 5;
    test::gClock.counterFails = true;
    test::ExpectFailure([&] { timer.Stop(); }, 50, kCounterFailure);
    test::gClock.counterFails = false;
    test::gClock.ticks += 2;
}

TEST_F(TimersOverScript, TimerWhoseStopFailsRunsOn) {
    test::SetSystemError(50, "Not here.");
    TotalTimer totals[3];
    FailToStopAndEnd<TotalTimer::Timer>(totals[0]);
    FailToStopAndEnd<TotalTimer::Timer2>(totals[0], totals[1]);
    FailToStopAndEnd<TotalTimer::Timer3>(totals[0], totals[1], totals[2]);
    for (unsigned int i = 0; i != 3; ++i) {
        EXPECT_EQ(totals[i].GetIncrementCount(), 3u - i);
        EXPECT_EQ(totals[i].GetTotalInMilliseconds(), 7u * (3 - i));
    }
}

using TimersOverScriptDeathTest = TimersOverScript;

// The exception of `Stop` is pending when the end of the timer throws another.
TEST_F(TimersOverScriptDeathTest, StopThatFailsInTheTimersOwnScopeTerminatesTheProcess) {
    const auto body = [] {
        test::SetSystemError(50, "Not here.");
        TotalTimer total;
        try {
            TotalTimer::Timer timer(total);
            test::gClock.counterFails = true;
            timer.Stop();
        } catch (const ZBase::Message&) {
            std::_Exit(0);
        }
    };
    EXPECT_EXIT(body(), test::IsEndOfAbort, "terminate called");
}

// The frequency is cached for the life of the process, so these run in processes of their own.
class FrequencyOverScript : public TimersOverScript {
protected:
    FrequencyOverScript() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void Conclude() { std::_Exit(testing::Test::HasFailure() ? 1 : 0); }
};

using TimerFrequencyOverScriptDeathTest = FrequencyOverScript;

TEST_F(TimerFrequencyOverScriptDeathTest, IsAskedOnceForTimersAndOnceForTotals) {
    const auto body = [] {
        const Timer timer;
        const TotalTimer total;
        EXPECT_EQ(test::gClock.frequencyAsked, 0);
        timer.GetAgeInMicroseconds();
        timer.GetAgeInSeconds();
        Timer().GetAgeInMilliseconds();
        EXPECT_EQ(test::gClock.frequencyAsked, 1);
        total.GetTotalInSeconds();
        TotalTimer().GetTotalInMicroseconds();
        EXPECT_EQ(test::gClock.frequencyAsked, 2);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TimerFrequencyOverScriptDeathTest, ThatTheSystemRefusesFailsReadingsButNoMeasurement) {
    const auto body = [] {
        test::gClock.frequencyFails = true;
        test::SetSystemError(50, "Not here.");
        const Timer timer;
        TotalTimer total;
        Measure(total, 1000);
        test::ExpectFailure([&] { timer.GetAgeInSeconds(); }, 50, kFrequencyFailure);
        test::ExpectFailure([&] { total.GetTotalInMicroseconds(); }, 50, kFrequencyFailure);
        test::ExpectFailure([&] { total.GetAverageInMicroseconds(); }, 50, kFrequencyFailure);
        test::gClock.frequencyFails = false;  // it is read again until that succeeds
        EXPECT_EQ(total.GetTotalInSeconds(), 1u);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(TimerFrequencyOverScriptDeathTest, MultiplicationComesBeforeTheDivision) {
    const auto body = [] {
        test::gClock.frequency = 3;
        TotalTimer total;
        Measure(total, 2);
        EXPECT_EQ(total.GetTotalInMicroseconds(), 666666u);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

}  // namespace
