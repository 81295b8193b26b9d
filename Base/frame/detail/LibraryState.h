#pragma once

#include <cstddef>
#include <iosfwd>
#include <set>
#include <string>

namespace ZBase {

class AppGlobalEventCallback;
struct MemGovernorProxy;

// What exists from load to unload. Load.cpp defines all of it, in the order of construction.

extern std::string gContainerPath;
extern std::string gProcessLocale;

// The registered governors, in the order of their addresses; not owned.
extern std::set<MemGovernorProxy*> gMemGovernors;

// Receives the application's events; null at first. Held, not owned.
extern AppGlobalEventCallback* gAppGlobalEventCallback;

/// `std::cout`. Whoever includes <iostream> for it has a constructor at load, so only Load.cpp does.
std::ostream& StandardOutput();

// Settings of the buffers that are read at load.
extern std::size_t sGrowLimitBytes;
extern std::size_t sPageSize;

}  // namespace ZBase
