#pragma once

#include <cstdint>
#include <vector>

namespace test {

/// Scripted debug help. A walk returns `steps` frames at 0x1001, 0x1002 and so on, which are in no module
/// unless `gModules` has one.
struct DebugHelpScript {
    bool isThere = true;
    bool starts = true;
    const char* missingEntry = nullptr;
    const char* symbol = nullptr;  // of every address, with its start at 0x1000
    bool hasStackCapture = true;
    unsigned int steps = 13;
    unsigned int stepWithoutAddress = 0;

    int opened = 0;  // and not yet closed
    int started = 0;
    std::vector<std::uint64_t>
        seed;  // of the last walk: addresses of code, stack and frame, with their modes
    const void* process = nullptr;
    const void* thread = nullptr;
};
extern DebugHelpScript gDebugHelp;

}  // namespace test
