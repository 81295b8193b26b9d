#include "tests/support/System.h"

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace test {

void SetVariable(const char* name, const char* value) {
    if (value == nullptr) {
        unsetenv(name);
    } else {
        setenv(name, value, 1);
    }
}

unsigned long ThreadId() {
    return static_cast<unsigned long>(gettid());
}

std::size_t PageSize() {
    return static_cast<std::size_t>(getpagesize());
}

SpareDescriptors::SpareDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    mLimit = limit.rlim_cur;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

SpareDescriptors::~SpareDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = mLimit;
    setrlimit(RLIMIT_NOFILE, &limit);
}

bool IsEndOfAbort(int status) {
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

}  // namespace test
