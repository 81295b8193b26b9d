#pragma once

#include <Base/platform/TotalTimer.h>

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/scripted/ScriptedClock.h"

namespace test {

/// Timers with a clock of 1000 ticks a second that the test sets.
class TimersOverScript : public testing::Test {
protected:
    TimersOverScript() { gClock = {}; }
    ~TimersOverScript() override { gClock = {}; }

    static void Pass(std::uint64_t ticks) { gClock.ticks += ticks; }

    static void Measure(ZBase::TotalTimer& total, std::uint64_t ticks) {
        ZBase::TotalTimer::Timer timer(total);
        Pass(ticks);
    }
};

using TimerOverScript = TimersOverScript;
using TotalTimerOverScript = TimersOverScript;

}  // namespace test
