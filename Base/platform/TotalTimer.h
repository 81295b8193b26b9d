#pragma once

#include <Base/frame/Api.h>

#include <cstdint>

namespace ZBase {

/// Adds up the time that scoped timers measured, in ticks, and counts the measurements. It has no lock:
/// timers must not end at the same time on one total. Readings are truncated to whole units; the
/// microseconds, from which the others are computed, have 64 bits and wrap for very long spans. Readings
/// throw a `Message` with the system code as id when the system has no tick frequency.
class ZBASE_API TotalTimer {
public:
    class Timer;
    class Timer2;
    class Timer3;

    TotalTimer() = default;

    std::uint64_t GetTotalInMicroseconds() const;
    std::uint64_t GetTotalInMilliseconds() const;
    std::uint64_t GetTotalInSeconds() const;

    /// The total over the number of measurements; 0 when there is none.
    std::uint64_t GetAverageInMicroseconds() const;
    std::uint64_t GetAverageInMilliseconds() const;
    std::uint64_t GetAverageInSeconds() const;

    /// The number of measurements.
    std::uint64_t GetIncrementCount() const;

private:
    void Add(std::uint64_t ticks) {
        mTotal += ticks;
        ++mIncrements;
    }

    std::uint64_t mTotal = 0;  // ticks
    std::uint64_t mIncrements = 0;
};

// The scoped timers measure from their construction to `Stop` or, without that, to their end, and add one
// measurement to each of their totals. Constructor, `Stop` and destructor throw a `Message` with the system
// code as id when the system has no tick count. A timer whose `Stop` has thrown continues, and its destructor
// reads the count again: if that fails too it is a second exception during the first one, and the process is
// terminated. A copy of a running timer measures for itself.

/// Adds to one total.
class ZBASE_API TotalTimer::Timer {
public:
    Timer(TotalTimer& target);
    Timer(const Timer&) = default;
    Timer& operator=(const Timer&) = default;
    ~Timer() noexcept(false);

    /// Ends the measurement. May be called once only.
    void Stop();

private:
    TotalTimer* mpTarget;  // held, not owned; null once stopped
    std::uint64_t mStart;  // ticks
};

/// Adds to two totals; if they are the same it gets the measurement twice.
class ZBASE_API TotalTimer::Timer2 {
public:
    Timer2(TotalTimer& first, TotalTimer& second);
    Timer2(const Timer2&) = default;
    Timer2& operator=(const Timer2&) = default;
    ~Timer2() noexcept(false);

    /// Ends the measurement. May be called once only.
    void Stop();

private:
    TotalTimer* mpFirst;   // held, not owned; null once stopped
    TotalTimer* mpSecond;  // held, not owned; null once stopped
    std::uint64_t mStart;  // ticks
};

/// Adds to three totals, as `Timer2` does.
class ZBASE_API TotalTimer::Timer3 {
public:
    Timer3(TotalTimer& first, TotalTimer& second, TotalTimer& third);
    Timer3(const Timer3&) = default;
    Timer3& operator=(const Timer3&) = default;
    ~Timer3() noexcept(false);

    /// Ends the measurement. May be called once only.
    void Stop();

private:
    TotalTimer* mpFirst;   // held, not owned; null once stopped
    TotalTimer* mpSecond;  // held, not owned; null once stopped
    TotalTimer* mpThird;   // held, not owned; null once stopped
    std::uint64_t mStart;  // ticks
};

}  // namespace ZBase
