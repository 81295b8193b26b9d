#pragma once

#include <link.h>
#include <string>

namespace ZBase::os {

/// The absolute path of a loaded module. The loader's name is empty for the program, and may be relative to
/// an earlier current directory.
std::string ModulePath(const link_map& module);

}  // namespace ZBase::os
