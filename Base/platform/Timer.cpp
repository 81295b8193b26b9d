#include <Base/platform/Timer.h>
#include <Base/platform/detail/Ticks.h>

namespace ZBase {

static constinit detail::Frequency sFrequency;

Timer::Timer() : mStart(detail::Now()) {}

void Timer::ResetTimer() {
    mStart = detail::Now();
}

std::uint64_t Timer::GetAgeInMicroseconds() const {
    return sFrequency.Microseconds(detail::Now() - mStart);
}

std::uint64_t Timer::GetAgeInMilliseconds() const {
    return GetAgeInMicroseconds() / 1000;
}

std::uint64_t Timer::GetAgeInSeconds() const {
    return GetAgeInMicroseconds() / 1000000;
}

}  // namespace ZBase
