#pragma once

#include <functional>

namespace test {

/// What a job takes.
struct Figures {
    double work = 0;    // instructions of this process, or nanoseconds of this thread
    double peak = 0;    // octets of heap and pages at once, beyond those before
    double handed = 0;  // octets of heap and pages that were allocated, whether or not they were freed
};

/// How work is measured here.
enum class EMeter {
    eCounter,   // instructions retired in user space, by the processor's counter
    eEmulator,  // instructions, counted by valgrind's callgrind, under which this process runs
    eClock,     // processor time of this thread
};

EMeter UsedMeter();
const char* NameOf(EMeter meter);

/// Does a job once, and measures it. By the clock it is done several times, and the work is that of the
/// fastest.
Figures Measure(const std::function<void()>& job);

}  // namespace test
