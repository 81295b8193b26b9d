#pragma once

#include <Base/frame/Standard.h>

// ZBASE_API marks what the library exports; everything else stays inside it.
#if defined(_WIN32)
#if defined(ZBASE_BUILDING)
#define ZBASE_API __declspec(dllexport)
#else
#define ZBASE_API __declspec(dllimport)
#endif
#else
#define ZBASE_API [[gnu::visibility("default")]]
#endif
