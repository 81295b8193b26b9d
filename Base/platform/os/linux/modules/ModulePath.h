#pragma once

#include <link.h>
#include <string>

namespace ZBase::os {

/// The absolute path of a loaded module. What the loader calls it is empty for the program, and may be
/// relative to a directory that was current once.
std::string ModulePath(const link_map& module);

}  // namespace ZBase::os
