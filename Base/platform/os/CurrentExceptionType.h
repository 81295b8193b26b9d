#pragma once

#include <cstddef>

namespace ZBase::os {

/// Writes the name of the type of the exception that is being handled, and a terminator, into `name`, which
/// has room for `capacity` octets, at least 1. Cuts a name that is too long. False, and an empty name, if
/// there is none or its type is not known. Without the heap the name is the compiler's.
bool GetCurrentExceptionType(char* name, std::size_t capacity, bool hasHeap) noexcept;

}  // namespace ZBase::os
