#pragma once

/// Marks the fourteen entry points, which are looked up by exactly these names; all others are hidden.
#define ZBASE_DEBUGHELP_ENTRY extern "C" [[gnu::visibility("default")]]
