#include <Base/platform/os/Clock.h>

#include <windows.h>

namespace ZBase::os {

bool QueryCounter(std::uint64_t& ticks) {
    LARGE_INTEGER count{};
    const bool succeeded = QueryPerformanceCounter(&count) != 0;
    if (succeeded) ticks = static_cast<std::uint64_t>(count.QuadPart);
    return succeeded;
}

bool QueryCounterFrequency(std::uint64_t& ticksPerSecond) {
    LARGE_INTEGER count{};
    const bool succeeded = QueryPerformanceFrequency(&count) != 0;
    if (succeeded) ticksPerSecond = static_cast<std::uint64_t>(count.QuadPart);
    return succeeded;
}

}  // namespace ZBase::os
