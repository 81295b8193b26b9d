#include <Base/platform/os/processes/Forks.h>

namespace ZBase::os {

// No process of this system is a copy of another.
bool CallAtFork(void (*)(), void (*)(), void (*)()) {
    return true;
}

}  // namespace ZBase::os
