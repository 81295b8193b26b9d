#pragma once

#include <string>

namespace ZBase::os {

/// A module of the process; null for none.
using Module = void*;

/// What a component's bare name is completed with to a file name, such as "_64.so".
const unsigned short* ComponentEnding();

/// Loads a module with all that it needs, its symbols hidden from others. Gives null with the last code 126
/// when the module or one that it needs is not there, 206 when no file can have this name, 193 when it is no
/// valid image, 127 when it asks for a function that nobody has; `words` is then what the system's loader
/// says in its own words, which name the file or function that is missing. Empty where it says nothing.
Module LoadModule(const unsigned short* fileName, std::basic_string<unsigned short>& words);

/// Gives up what `LoadModule` gave. The last one to do so unloads the module.
void FreeModule(Module module);

/// The module called `name`, without what the platform puts before and behind it, if it is in the process
/// already; null otherwise. What was found stays in the process for good.
Module FindLoadedModule(const char* name);

/// The address of what `module` itself exports under `name`; null with the last code 127 if nothing, and null
/// with the last code 0 if what it exports is the number 0. What it needs from other modules does not count.
void* FindFunction(Module module, const char* name);

/// Puts where the allocation or module that `address` lies in begins into `base`, null if there is nothing at
/// that address. False if no such address can be.
bool FindAllocationBase(const void* address, const void*& base);

/// Write the path of the module, or of the one that begins at `base`, and a terminator into `path`, which has
/// room for `capacity` units. Give the units before the terminator; 0 is a failure: last code 126 when no
/// module begins there. A path that is too long is cut and gives `capacity`, with the last code 122.
unsigned int GetModulePath(Module module, unsigned short* path, unsigned int capacity);
unsigned int GetModulePathAt(const void* base, unsigned short* path, unsigned int capacity);

}  // namespace ZBase::os
