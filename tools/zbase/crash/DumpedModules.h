#pragma once

#include "ImageSymbols.h"

#include <map>
#include <string>

// The modules of a dump that Windows wrote.

/// The image of each module, by the path in the dump. Empty if another system wrote it.
std::map<std::string, ImageIdentity> ImagesInDump(const std::string& dump);

/// The dump with an identifier of its symbols for each module that has none: the reader looks for no others.
std::string WithModuleIdentifiers(std::string dump);
