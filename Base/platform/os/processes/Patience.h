#pragma once

#include <Base/platform/os/Clock.h>
#include <Base/platform/os/processes/Threads.h>

#include <cstdint>

namespace ZBase::os {

/// Waits for conditions until the time of them all is up. Measured by the clock: on a busy machine a yield
/// may take as long as a pause, and on some systems a pause is longer than it says.
class Patience {
public:
    /// A fork's, for locks whose holders may wait for what the forking thread holds, such as the heap.
    Patience() = default;

    explicit Patience(std::uint64_t milliseconds) : mMilliseconds(milliseconds) {}

    /// True as soon as `attempt()` is.
    template <class Try>
    bool Until(const Try& attempt) {
        for (;;) {
            if (attempt()) return true;
            if (mTries == kYields + mMilliseconds || Now() - mBegin >= mMilliseconds) return false;
            if (mTries++ < kYields) {
                YieldThread();
            } else {
                SleepMilliseconds(1);
            }
        }
    }

private:
    static constexpr std::uint64_t kYields = 10;

    static std::uint64_t Now() {
        std::uint64_t ticks = 0;
        std::uint64_t ticksPerSecond = 0;
        return QueryCounter(ticks) && QueryCounterFrequency(ticksPerSecond) ? ticks * 1000 / ticksPerSecond
                                                                            : 0;
    }

    const std::uint64_t mMilliseconds = 20;
    const std::uint64_t mBegin = Now();
    std::uint64_t mTries = 0;
};

}  // namespace ZBase::os
