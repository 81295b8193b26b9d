#include "tests/scripted/ScriptedClock.h"

#include <Base/platform/os/Clock.h>

namespace ZBase::os {

bool QueryCounter(std::uint64_t& ticks) {
    ++test::gClock.counterAsked;
    ticks = test::gClock.ticks;
    test::gClock.ticks += test::gClock.step;
    return !test::gClock.counterFails;
}

bool QueryCounterFrequency(std::uint64_t& ticksPerSecond) {
    ++test::gClock.frequencyAsked;
    ticksPerSecond = test::gClock.frequency;
    return !test::gClock.frequencyFails;
}

}  // namespace ZBase::os
