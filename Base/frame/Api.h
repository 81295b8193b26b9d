#pragma once

#include <Base/frame/Standard.h>

// ZBASE_API marks the exported names; all others are hidden. On Windows who links it statically defines
// ZBASE_STATIC.
#if defined(_WIN32)
#if defined(ZBASE_BUILDING)
#define ZBASE_API __declspec(dllexport)
#elif defined(ZBASE_STATIC)
#define ZBASE_API
#else
#define ZBASE_API __declspec(dllimport)
#endif
#else
#define ZBASE_API [[gnu::visibility("default")]]
#endif
