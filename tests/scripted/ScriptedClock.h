#pragma once

#include <cstdint>

namespace test {

/// The system's clock for the logic: its values, and the number of reads.
struct Clock {
    std::uint64_t ticks = 0;
    std::uint64_t step = 0;  // added to the ticks at each reading
    bool counterFails = false;
    std::uint64_t frequency = 1000;
    bool frequencyFails = false;

    int counterAsked = 0;
    int frequencyAsked = 0;
};

inline Clock gClock;

}  // namespace test
