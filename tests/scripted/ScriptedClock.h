#pragma once

#include <cstdint>

namespace test {

/// The clock of the system under the logic: what it gives, and how often it was asked.
struct Clock {
    std::uint64_t ticks = 0;
    std::uint64_t step = 0;  // that the ticks advance by with each reading
    bool counterFails = false;
    std::uint64_t frequency = 1000;
    bool frequencyFails = false;

    int counterAsked = 0;
    int frequencyAsked = 0;
};

inline Clock gClock;

}  // namespace test
