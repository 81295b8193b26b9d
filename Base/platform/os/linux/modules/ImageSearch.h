#pragma once

#include <string>

namespace ZBase::os {

/// Whether the loader can be given this name, of a file or as it is written where a module is needed, without
/// the process being ended by an image that is damaged: it, or one that it needs and is not in the process.
/// Where the loader takes a bare name from its cache is not looked at. If not, `damaged` is the file. See
/// `ReadImage`.
bool IsSafeToLoad(const std::string& name, std::string& damaged);

}  // namespace ZBase::os
