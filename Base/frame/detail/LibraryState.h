#pragma once

#include <cstddef>
#include <string>

namespace ZBase {

// What exists from load to unload. Load.cpp defines all of it, in the order of construction.

extern std::string gContainerPath;
extern std::string gProcessLocale;

// Settings of the buffers that are read at load.
extern std::size_t sGrowLimitBytes;
extern std::size_t sPageSize;

}  // namespace ZBase
