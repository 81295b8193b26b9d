#include <Base/frame/ProcessSettings.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/platform/os/memory/Pages.h>

#include <atomic>

namespace ZBase {

ReturnString GetContainerPath() {
    return ReturnString(gContainerPath.c_str());
}

void SetContainerPath(const char* path) {
    gContainerPath = path;
}

const char* GetProcessLocale() {
    return gProcessLocale.c_str();
}

bool GetSymPageSize(std::size_t* pageSize) {
    // Read twice at worst, and without a guard variable, which a forked child might find locked for ever.
    static constinit std::atomic<std::size_t> sSize{0};
    std::size_t size = sSize.load(std::memory_order_relaxed);
    if (size == 0) sSize.store(size = os::PageSize(), std::memory_order_relaxed);
    if (pageSize != nullptr) *pageSize = size;
    return true;
}

}  // namespace ZBase
