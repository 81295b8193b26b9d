#include <Base/platform/os/linux/processes/OwnProc.h>

#include <unistd.h>
#include <cstdlib>

namespace ZBase::os {

bool HasOwnProc() {
    char id[24];
    const ssize_t length = readlink("/proc/self", id, sizeof id - 1);
    if (length <= 0) return false;
    id[length] = 0;
    return std::strtol(id, nullptr, 10) == getpid();
}

}  // namespace ZBase::os
