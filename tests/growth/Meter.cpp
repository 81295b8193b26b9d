#include "tests/growth/Meter.h"

#include <linux/perf_event.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "tests/growth/Holdings.h"

/// The emulator counts within this function, by its name.
extern "C" [[gnu::noinline, gnu::used]] void ZBaseGrowthCounted(const std::function<void()>& job) {
    job();
    asm volatile("");  // no tail call
}

namespace test {

namespace {

namespace fs = std::filesystem;

constexpr double kLeastNanoseconds = 1e6;  // a shorter time is not significant

/// The processor's counter of this thread's instructions; below 0 where there is none.
int OpenCounter() {
    perf_event_attr attributes{};
    attributes.size = sizeof attributes;
    attributes.type = PERF_TYPE_HARDWARE;
    attributes.config = PERF_COUNT_HW_INSTRUCTIONS;
    attributes.exclude_kernel = 1;
    attributes.exclude_hv = 1;
    return static_cast<int>(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, PERF_FLAG_FD_CLOEXEC));
}

/// A child of a fork has a counter of its own.
int Counter() {
    static pid_t sOwner = 0;
    static int sCounter = -1;
    if (sOwner != getpid()) {
        if (sCounter >= 0) close(sCounter);
        sOwner = getpid();
        sCounter = OpenCounter();
    }
    return sCounter;
}

double ByCounter(const std::function<void()>& job) {
    const int counter = Counter();
    std::uint64_t before = 0;
    std::uint64_t after = 0;
    const bool isRead = read(counter, &before, sizeof before) == sizeof before;
    job();
    if (!isRead || read(counter, &after, sizeof after) != sizeof after)
        throw std::runtime_error("the counter can't be read");
    return static_cast<double>(after - before);
}

/// The folder into which the emulator writes what it counted, a file for each time; null without an emulator.
const char* CountsFolder() {
    return std::getenv("ZBASE_GROWTH_COUNTS");
}

double ByEmulator(const std::function<void()>& job) {
    const char* const folder = CountsFolder();
    ZBaseGrowthCounted(job);
    double total = -1;
    for (const auto& file : fs::directory_iterator(folder)) {
        std::ifstream counts(file.path());
        constexpr std::string_view kTotals = "totals: ";
        for (std::string line; std::getline(counts, line);) {
            if (line.starts_with(kTotals)) total = std::stod(line.substr(kTotals.size()));
        }
        fs::remove(file.path());
    }
    if (total < 0) throw std::runtime_error("the emulator counted nothing");
    return total;
}

double ThreadNanoseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

double ByClock(const std::function<void()>& job) {
    double least = 0;
    double together = 0;
    for (int times = 0; times < 2 || (times < 1000 && together < kLeastNanoseconds); ++times) {
        const double start = ThreadNanoseconds();
        job();
        const double taken = ThreadNanoseconds() - start;
        least = times == 0 ? taken : std::min(least, taken);
        together += taken;
    }
    return least;
}

}  // namespace

EMeter UsedMeter() {
    if (CountsFolder() != nullptr) return EMeter::eEmulator;
    return Counter() >= 0 ? EMeter::eCounter : EMeter::eClock;
}

const char* NameOf(EMeter meter) {
    switch (meter) {
        case EMeter::eCounter:
            return "instructions by the processor's counter";
        case EMeter::eEmulator:
            return "instructions by callgrind";
        case EMeter::eClock:
            break;
    }
    return "processor time by the clock";
}

Figures Measure(const std::function<void()>& job) {
    const HoldingsWatch watch;
    Figures figures;
    // Before the meter takes memory of its own.
    const auto watched = [&] {
        job();
        if (figures.peak != 0) return;
        figures.peak = watch.Peak();
        figures.handed = watch.Handed();
    };
    switch (UsedMeter()) {
        case EMeter::eCounter:
            figures.work = ByCounter(watched);
            break;
        case EMeter::eEmulator:
            figures.work = ByEmulator(watched);
            break;
        case EMeter::eClock:
            figures.work = ByClock(watched);
            break;
    }
    return figures;
}

}  // namespace test
