#pragma once

#include <cstdint>

namespace test {

/// Debug help as a test wants it. A walk gives `steps` frames at 0x1001, 0x1002 and so on, which lie in no
/// module.
struct DebugHelpScript {
    bool isThere = true;
    bool hasStackCapture = true;
    unsigned int steps = 13;
    unsigned int stepWithoutAddress = 0;
};
extern DebugHelpScript gDebugHelp;

}  // namespace test
