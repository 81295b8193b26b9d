#pragma once

// What a component of the tests does, as the program that loaded it sees it.

#include <cstddef>

namespace component {

using Log = void (*)(const char* what);

}  // namespace component
