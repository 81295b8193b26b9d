#pragma once

#include <string>
#include <vector>

namespace test {

/// The pieces that the debug output was given, with "W:" or "A:" before a wide or a narrow one.
extern std::vector<std::string> gDebugOutput;

}  // namespace test
