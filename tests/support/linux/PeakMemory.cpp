#include "tests/support/PeakMemory.h"

#include <malloc.h>

#include <fstream>
#include <string>

namespace test {

std::size_t PeakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) return std::stoul(line.substr(6)) * 1024;
    }
    return 0;
}

std::size_t PeakMemoryFromNowOn() {
    malloc_trim(0);
    std::ofstream("/proc/self/clear_refs") << "5";
    return PeakMemory();
}

}  // namespace test
