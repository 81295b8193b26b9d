#pragma once

#include <string>

namespace ZBase::os {

/// The absolute form of a directory; empty if it is too long for the name of a dump in it, or if there is
/// none.
std::string AbsoluteDirectory(const std::string& directory);

}  // namespace ZBase::os
