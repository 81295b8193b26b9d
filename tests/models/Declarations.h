#pragma once

#include <string>
#include <vector>

namespace test {

/// The public operations that a header declares, each on one line and by the class it is of:
/// "Message: void Clear()". Deleted ones and templates of deleted ones are left out, and so are destructors.
std::vector<std::string> DeclaredOperations(const std::string& header);

}  // namespace test
