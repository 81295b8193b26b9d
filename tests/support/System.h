#pragma once

#include <cstddef>

namespace test {

/// Sets a variable of the environment; null removes it.
void SetVariable(const char* name, const char* value);

/// As the system tells them.
unsigned long ThreadId();
std::size_t PageSize();

/// Whether a process that ended with this status, as a death test tells it, was aborted.
bool IsEndOfAbort(int status);

}  // namespace test
