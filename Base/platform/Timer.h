#pragma once

#include <Base/frame/Api.h>

#include <cstdint>

namespace ZBase {

/// A stopwatch on the system's monotonic tick count. It runs from its construction, and any thread may read
/// it. Readings are truncated to whole units; the microseconds, from which the others are computed, have 64
/// bits and wrap for very long spans. All members but copying throw a `Message` with the system code as id
/// when the system has no tick count.
class ZBASE_API Timer {
public:
    Timer();

    /// Restarts at 0.
    void ResetTimer();

    std::uint64_t GetAgeInMicroseconds() const;
    std::uint64_t GetAgeInMilliseconds() const;
    std::uint64_t GetAgeInSeconds() const;

private:
    std::uint64_t mStart;  // ticks
};

}  // namespace ZBase
