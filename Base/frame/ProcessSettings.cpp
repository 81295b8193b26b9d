#include <Base/frame/ProcessSettings.h>
#include <Base/frame/detail/LibraryState.h>
#include <Base/platform/os/Pages.h>

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
    static const std::size_t size = os::PageSize();
    if (pageSize != nullptr) *pageSize = size;
    return true;
}

}  // namespace ZBase
