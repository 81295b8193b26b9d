#include <Base/platform/os/processes/Forks.h>

#include <pthread.h>

namespace ZBase::os {

bool CallAtFork(void (*before)(), void (*inParent)(), void (*inChild)()) {
    return pthread_atfork(before, inParent, inChild) == 0;
}

}  // namespace ZBase::os
