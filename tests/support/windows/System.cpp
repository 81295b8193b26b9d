#include "tests/support/System.h"

#include <windows.h>

#include <cstdlib>

namespace test {

void SetVariable(const char* name, const char* value) {
    _putenv_s(name, value == nullptr ? "" : value);
}

unsigned long ThreadId() {
    return GetCurrentThreadId();
}

std::size_t PageSize() {
    SYSTEM_INFO facts{};
    GetSystemInfo(&facts);
    return facts.dwPageSize;
}

SpareDescriptors::SpareDescriptors() = default;  // a process has millions

SpareDescriptors::~SpareDescriptors() = default;

bool IsEndOfAbort(int status) {
    return status == 3;  // the C library's
}

}  // namespace test
