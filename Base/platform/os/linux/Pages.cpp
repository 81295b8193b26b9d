#include <Base/platform/os/Pages.h>

#include <unistd.h>

namespace ZBase::os {

std::size_t PageSize() {
    return static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

}  // namespace ZBase::os
