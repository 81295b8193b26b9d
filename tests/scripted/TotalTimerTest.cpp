#include <Base/platform/TotalTimer.h>

#include <gtest/gtest.h>

#include "tests/scripted/TimersOverScript.h"

namespace {

using test::TotalTimerOverScript;
using ZBase::TotalTimer;

TEST_F(TotalTimerOverScript, NewTotalIsZeroInEveryUnit) {
    const TotalTimer total;
    EXPECT_EQ(total.GetTotalInMicroseconds(), 0u);
    EXPECT_EQ(total.GetTotalInMilliseconds(), 0u);
    EXPECT_EQ(total.GetTotalInSeconds(), 0u);
    EXPECT_EQ(total.GetIncrementCount(), 0u);
}

TEST_F(TotalTimerOverScript, AverageOfNoMeasurementIsZeroAndNeedsNoFrequency) {
    test::gClock.frequencyFails = true;
    const TotalTimer total;
    EXPECT_EQ(total.GetAverageInMicroseconds(), 0u);
    EXPECT_EQ(total.GetAverageInMilliseconds(), 0u);
    EXPECT_EQ(total.GetAverageInSeconds(), 0u);
    EXPECT_EQ(test::gClock.frequencyAsked, 0);
}

TEST_F(TotalTimerOverScript, UnitsAreTruncated) {
    TotalTimer total;
    Measure(total, 1999);
    EXPECT_EQ(total.GetIncrementCount(), 1u);
    EXPECT_EQ(total.GetTotalInMicroseconds(), 1999000u);
    EXPECT_EQ(total.GetTotalInMilliseconds(), 1999u);
    EXPECT_EQ(total.GetTotalInSeconds(), 1u);
}

TEST_F(TotalTimerOverScript, AverageIsTruncatedAtEachDivision) {
    TotalTimer total;
    Measure(total, 1000);
    Measure(total, 0);
    Measure(total, 0);
    EXPECT_EQ(total.GetTotalInMicroseconds(), 1000000u);
    EXPECT_EQ(total.GetAverageInMicroseconds(), 333333u);
    EXPECT_EQ(total.GetAverageInMilliseconds(), 333u);
    EXPECT_EQ(total.GetAverageInSeconds(), 0u);
}

TEST_F(TotalTimerOverScript, TotalWrapsBeforeItIsDivided) {
    TotalTimer total;
    Measure(total, 18446744073709);
    EXPECT_EQ(total.GetTotalInMicroseconds(), 18446744073709000u);
    Measure(total, 1);
    EXPECT_EQ(total.GetTotalInMicroseconds(), 448u);
    EXPECT_EQ(total.GetAverageInMicroseconds(), 224u);
}

TEST_F(TotalTimerOverScript, TimerThatWasStoppedAddsNothingMore) {
    TotalTimer total;
    {
        TotalTimer::Timer timer(total);
        Pass(3);
        timer.Stop();
        Pass(100);
    }
    EXPECT_EQ(total.GetIncrementCount(), 1u);
    EXPECT_EQ(total.GetTotalInMilliseconds(), 3u);
}

TEST_F(TotalTimerOverScript, TimerThatEndsAddsOneMeasurement) {
    TotalTimer total;
    Measure(total, 4);
    EXPECT_EQ(total.GetIncrementCount(), 1u);
    EXPECT_EQ(total.GetTotalInMilliseconds(), 4u);
}

// Each reading of the clock returns another time, so a second reading at the end would show.
TEST_F(TotalTimerOverScript, TwoTotalsGetTheSameMeasurement) {
    test::gClock.step = 7;
    TotalTimer first;
    TotalTimer second;
    Measure(first, 100);
    { TotalTimer::Timer2 timer(first, second); }
    EXPECT_EQ(test::gClock.counterAsked, 4);
    EXPECT_EQ(first.GetTotalInMilliseconds(), 100u + 7 + 7);
    EXPECT_EQ(second.GetTotalInMilliseconds(), 7u);
    EXPECT_EQ(first.GetIncrementCount(), 2u);
    EXPECT_EQ(second.GetIncrementCount(), 1u);
}

TEST_F(TotalTimerOverScript, ThreeTotalsGetTheSameMeasurement) {
    test::gClock.step = 7;
    TotalTimer totals[3];
    {
        TotalTimer::Timer3 timer(totals[0], totals[1], totals[2]);
        timer.Stop();
    }
    EXPECT_EQ(test::gClock.counterAsked, 2);
    for (const TotalTimer& total : totals) {
        EXPECT_EQ(total.GetTotalInMilliseconds(), 7u);
        EXPECT_EQ(total.GetIncrementCount(), 1u);
    }
}

TEST_F(TotalTimerOverScript, OneTotalGivenTwiceGetsTheMeasurementTwice) {
    TotalTimer total;
    {
        TotalTimer::Timer2 timer(total, total);
        Pass(5);
    }
    EXPECT_EQ(total.GetTotalInMilliseconds(), 10u);
    EXPECT_EQ(total.GetIncrementCount(), 2u);
}

TEST_F(TotalTimerOverScript, CopyOfARunningTimerMeasuresForItself) {
    TotalTimer total;
    {
        const TotalTimer::Timer timer(total);
        const TotalTimer::Timer copy(timer);
        Pass(5);
    }
    EXPECT_EQ(total.GetTotalInMilliseconds(), 10u);
    EXPECT_EQ(total.GetIncrementCount(), 2u);
}

}  // namespace
