#include <Base/platform/os/Clock.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>

#include <ctime>

namespace ZBase::os {

namespace {

// Ticks of 100 ns: in microseconds a span of them wraps after three weeks, a span of nanoseconds after five
// hours.
constexpr std::uint64_t kTicksPerSecond = 10'000'000;
constexpr std::uint64_t kNanosecondsPerTick = 1'000'000'000 / kTicksPerSecond;

}  // namespace

bool QueryCounter(std::uint64_t& ticks) {
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        SetLastCodeFromErrno();
        return false;
    }
    ticks = static_cast<std::uint64_t>(now.tv_sec) * kTicksPerSecond +
            static_cast<std::uint64_t>(now.tv_nsec) / kNanosecondsPerTick;
    return true;
}

bool QueryCounterFrequency(std::uint64_t& ticksPerSecond) {
    ticksPerSecond = kTicksPerSecond;
    return true;
}

}  // namespace ZBase::os
