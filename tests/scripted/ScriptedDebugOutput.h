#pragma once

#include <string>
#include <vector>

namespace test {

/// The texts of the debug output, with "W:" or "A:" before a wide or a narrow one.
extern std::vector<std::string> gDebugOutput;

}  // namespace test
