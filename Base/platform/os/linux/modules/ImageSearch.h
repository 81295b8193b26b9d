#pragma once

#include <string>

namespace ZBase::os {

/// Whether the loader can be called with this name, a file's or one in a dependency list, without the process
/// being ended by a damaged image: it, or a dependency that is not loaded yet. The loader's cache for bare
/// names is not searched. If not, `damaged` is the file. See `ReadImage`.
bool IsSafeToLoad(const std::string& name, std::string& damaged);

}  // namespace ZBase::os
