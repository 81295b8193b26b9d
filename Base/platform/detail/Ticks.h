#pragma once

#include <Base/frame/WideLiteral.h>
#include <Base/messages/detail/SystemFailure.h>
#include <Base/platform/os/Clock.h>

#include <atomic>
#include <cstdint>

namespace ZBase::detail {

inline std::uint64_t Now() {
    std::uint64_t ticks = 0;
    if (!os::QueryCounter(ticks)) ThrowSystemFailure("::QueryPerformanceCounter failed"_w);
    return ticks;
}

/// The frequency of the tick count, read at its first use.
class Frequency {
public:
    /// The product wraps for very long spans, as `Timer` documents. A frequency of 0 is not caught.
    std::uint64_t Microseconds(std::uint64_t ticks) { return ticks * 1'000'000 / Get(); }

private:
    std::uint64_t Get() {
        std::uint64_t frequency = mTicksPerSecond.load(std::memory_order_relaxed);
        if (frequency == 0) {
            if (!os::QueryCounterFrequency(frequency)) {
                ThrowSystemFailure("::QueryPerformanceFrequency failed"_w);
            }
            mTicksPerSecond.store(frequency, std::memory_order_relaxed);
        }
        return frequency;
    }

    std::atomic<std::uint64_t> mTicksPerSecond{0};  // 0: not read yet
};

}  // namespace ZBase::detail
