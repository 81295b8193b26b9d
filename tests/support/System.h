#pragma once

#include <cstddef>

namespace test {

/// Sets a variable of the environment; null removes it.
void SetVariable(const char* name, const char* value);

/// As the system tells them.
unsigned long ThreadId();
std::size_t PageSize();

/// While it lives, this process can open what a test needs itself, also where the tested code has no
/// descriptor to spare: the limit of the user, if there is another, is higher.
class SpareDescriptors {
public:
    SpareDescriptors();
    ~SpareDescriptors();
    SpareDescriptors(const SpareDescriptors&) = delete;
    SpareDescriptors& operator=(const SpareDescriptors&) = delete;

private:
    unsigned long long mLimit = 0;
};

/// Whether a process that ended with this status, as a death test tells it, was aborted.
bool IsEndOfAbort(int status);

}  // namespace test
