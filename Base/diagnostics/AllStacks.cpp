#include <Base/diagnostics/AllStacks.h>
#include <Base/platform/os/stacks/AllStacks.h>

namespace ZBase {

bool DumpAllStacks(const char* path) {
    return path != nullptr && os::WriteAllStacks(path);
}

}  // namespace ZBase
