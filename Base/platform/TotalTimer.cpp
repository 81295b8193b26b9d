#include <Base/platform/TotalTimer.h>
#include <Base/platform/detail/Ticks.h>

namespace ZBase {

static constinit detail::Frequency sFrequency;

std::uint64_t TotalTimer::GetTotalInMicroseconds() const {
    return sFrequency.Microseconds(mTotal);
}

std::uint64_t TotalTimer::GetTotalInMilliseconds() const {
    return GetTotalInMicroseconds() / 1000;
}

std::uint64_t TotalTimer::GetTotalInSeconds() const {
    return GetTotalInMicroseconds() / 1000000;
}

std::uint64_t TotalTimer::GetAverageInMicroseconds() const {
    return mIncrements == 0 ? 0 : GetTotalInMicroseconds() / mIncrements;
}

std::uint64_t TotalTimer::GetAverageInMilliseconds() const {
    return GetAverageInMicroseconds() / 1000;
}

std::uint64_t TotalTimer::GetAverageInSeconds() const {
    return GetAverageInMicroseconds() / 1000000;
}

std::uint64_t TotalTimer::GetIncrementCount() const {
    return mIncrements;
}

TotalTimer::Timer::Timer(TotalTimer& target) : mpTarget(&target), mStart(detail::Now()) {}

TotalTimer::Timer::~Timer() noexcept(false) {
    if (mpTarget != nullptr) Stop();
}

void TotalTimer::Timer::Stop() {
    const std::uint64_t ticks = detail::Now() - mStart;
    mpTarget->Add(ticks);
    mpTarget = nullptr;
}

TotalTimer::Timer2::Timer2(TotalTimer& first, TotalTimer& second)
    : mpFirst(&first), mpSecond(&second), mStart(detail::Now()) {}

TotalTimer::Timer2::~Timer2() noexcept(false) {
    if (mpFirst != nullptr) Stop();
}

void TotalTimer::Timer2::Stop() {
    const std::uint64_t ticks = detail::Now() - mStart;
    mpFirst->Add(ticks);
    mpSecond->Add(ticks);
    mpFirst = nullptr;
    mpSecond = nullptr;
}

TotalTimer::Timer3::Timer3(TotalTimer& first, TotalTimer& second, TotalTimer& third)
    : mpFirst(&first), mpSecond(&second), mpThird(&third), mStart(detail::Now()) {}

TotalTimer::Timer3::~Timer3() noexcept(false) {
    if (mpFirst != nullptr) Stop();
}

void TotalTimer::Timer3::Stop() {
    const std::uint64_t ticks = detail::Now() - mStart;
    mpFirst->Add(ticks);
    mpSecond->Add(ticks);
    mpThird->Add(ticks);
    mpFirst = nullptr;
    mpSecond = nullptr;
    mpThird = nullptr;
}

}  // namespace ZBase
