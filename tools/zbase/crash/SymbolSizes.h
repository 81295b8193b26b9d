#pragma once

#include <string>

/// A symbol file of Breakpad's, made of `module`, in which the symbols that have no size there (PUBLIC) get
/// that of the module's own tables, or go if they have none there either: without one a symbol covers all
/// that lies behind it, up to the next.
std::string WithSymbolSizes(const std::string& symbols, const std::string& module);
