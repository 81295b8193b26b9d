#pragma once

/// Marks the fourteen entry points, which are found under exactly their names; everything else stays inside.
#define ZBASE_DEBUGHELP_ENTRY extern "C" [[gnu::visibility("default")]]
