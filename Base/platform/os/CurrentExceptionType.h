#pragma once

#include <cstddef>

namespace ZBase::os {

/// Writes the name of the type of the exception that is being handled, and a terminator, into `name`, which
/// has room for `capacity` octets, at least 1. Cuts a name that is too long; empty if the type is not known.
void GetCurrentExceptionType(char* name, std::size_t capacity) noexcept;

}  // namespace ZBase::os
