#pragma once

// The calls of a test component, seen by the program that loaded it.

#include <cstddef>

// What a component exports.
#if defined(_WIN32)
#define COMPONENT_API __declspec(dllexport)
#else
#define COMPONENT_API [[gnu::visibility("default")]]
#endif

namespace component {

using Log = void (*)(const char* what);

}  // namespace component
