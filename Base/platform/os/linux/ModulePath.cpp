#include <Base/platform/os/linux/ModulePath.h>

#include <unistd.h>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <mutex>

#include <Base/platform/os/linux/MappedRegions.h>

namespace ZBase::os {

namespace {

const char* ProgramPath() {
    static char path[PATH_MAX];
    static std::once_flag once;
    std::call_once(once, [] {
        const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
        path[std::max<ssize_t>(length, 0)] = 0;
    });
    return path;
}

}  // namespace

std::string ModulePath(const link_map& module) {
    if (*module.l_name == 0) return ProgramPath();
    MappedRegion region;
    if (*module.l_name != '/' && FindMappedRegion(reinterpret_cast<std::uintptr_t>(module.l_ld), region) &&
        region.path.starts_with('/'))
        return region.path;
    return module.l_name;
}

}  // namespace ZBase::os
