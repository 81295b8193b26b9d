#pragma once

#include <link.h>

namespace ZBase::os {

/// Whether a module itself exports a symbol of this name, of any kind: a function, an indirect function,
/// data, thread-local data, an absolute symbol. By the rules of the loader's own search.
bool Exports(const link_map& module, const char* name);

}  // namespace ZBase::os
