#pragma once

#include <link.h>

namespace ZBase::os {

/// Whether a module itself exports a symbol of this name, of any kind: a function, one that is chosen when it
/// is asked for, data, data of each thread, a number. By the rules of the loader's own search.
bool Exports(const link_map& module, const char* name);

}  // namespace ZBase::os
