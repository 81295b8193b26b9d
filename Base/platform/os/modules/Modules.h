#pragma once

#include <string>

namespace ZBase::os {

/// A module of the process; null for none.
using Module = void*;

/// The suffix that makes a component's bare name a file name, such as "_64.so".
const unsigned short* ComponentEnding();

/// Loads a module with its dependencies, its symbols hidden from others. Returns null with the last code 126
/// when the module or a dependency is missing, 206 when no file can have this name, 193 when it is not a
/// valid image, 127 when it needs a function that no module has; `words` is then the text of the system's
/// loader, which names the missing file or function. Empty if there is none.
Module LoadModule(const unsigned short* fileName, std::basic_string<unsigned short>& words);

/// Drops a reference of `LoadModule`. The last one unloads the module.
void FreeModule(Module module);

/// The module called `name`, without the platform's prefix and suffix, if it is in the process already; null
/// otherwise. A found module stays in the process for good.
Module FindLoadedModule(const char* name);

/// The address of a symbol that `module` itself exports as `name`; null with the last code 127 if there is
/// none, and null with the last code 0 for an absolute symbol of 0. Symbols of its dependencies don't count.
void* FindFunction(Module module, const char* name);

/// Puts the start of the allocation or module that contains `address` into `base`, null if nothing is mapped
/// at that address. False for an impossible address.
bool FindAllocationBase(const void* address, const void*& base);

/// Write the path of the module, or of the one that begins at `base`, and a terminator into `path`, which has
/// space for `capacity` units. Return the units before the terminator; 0 is a failure: last code 126 when no
/// module begins there. A path that is too long is cut and returns `capacity`, with the last code 122.
unsigned int GetModulePath(Module module, unsigned short* path, unsigned int capacity);
unsigned int GetModulePathAt(const void* base, unsigned short* path, unsigned int capacity);

}  // namespace ZBase::os
