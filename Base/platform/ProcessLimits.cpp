#include <Base/platform/ProcessLimits.h>

#include <Base/platform/os/host/ProcessLimits.h>

namespace ZBase {

unsigned int GetUsableProcessors() {
    return os::UsableProcessors();
}

std::uint64_t GetUsableMemory() {
    return os::UsableMemory();
}

}  // namespace ZBase
