#pragma once

#include <Base/frame/Standard.h>

// ZLITEXML_API marks what the library exports. ZLITEXML_INTERFACE marks a class that is whole in its header:
// who uses it needs nothing of the library, and all libraries of a process mean the same class.
#if defined(_WIN32)
#if defined(ZLITEXML_BUILDING)
#define ZLITEXML_API __declspec(dllexport)
#elif defined(ZLITEXML_STATIC)
#define ZLITEXML_API
#else
#define ZLITEXML_API __declspec(dllimport)
#endif
#define ZLITEXML_INTERFACE
#else
#define ZLITEXML_API [[gnu::visibility("default")]]
#define ZLITEXML_INTERFACE [[gnu::visibility("default")]]
#endif
