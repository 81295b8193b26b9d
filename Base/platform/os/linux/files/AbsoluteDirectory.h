#pragma once

#include <string>

namespace ZBase::os {

/// The absolute form of a directory; empty if it is too long for a dump's path, or can't be resolved.
std::string AbsoluteDirectory(const std::string& directory);

}  // namespace ZBase::os
