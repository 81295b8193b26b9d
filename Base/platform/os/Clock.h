#pragma once

#include <cstdint>

namespace ZBase::os {

/// Reads the monotonic tick count; false if the system refuses.
bool QueryCounter(std::uint64_t& ticks);

/// Puts the ticks of one second into `ticksPerSecond`; false if the system refuses.
bool QueryCounterFrequency(std::uint64_t& ticksPerSecond);

}  // namespace ZBase::os
