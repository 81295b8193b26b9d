#pragma once

#include <string>

/// A Breakpad symbol file of `module` whose symbols without a size (PUBLIC) get the one in the module's own
/// tables, or are dropped if there is none: a symbol without a size covers everything up to the next.
std::string WithSymbolSizes(const std::string& symbols, const std::string& module);
