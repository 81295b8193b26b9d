#include "tests/support/PeakMemory.h"

#include <windows.h>

#include <psapi.h>

namespace test {

// A peak can't begin anew here; under Wine all figures are 0.
std::size_t PeakMemory() {
    PROCESS_MEMORY_COUNTERS counters{};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakPagefileUsage;
}

std::size_t PeakMemoryFromNowOn() {
    return PeakMemory();
}

}  // namespace test
