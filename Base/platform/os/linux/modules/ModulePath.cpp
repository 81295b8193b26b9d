#include <Base/platform/os/linux/modules/ModulePath.h>

#include <cstdint>

#include <Base/platform/os/linux/memory/MappedRegions.h>
#include <Base/platform/os/linux/processes/ProgramStart.h>

namespace ZBase::os {

std::string ModulePath(const link_map& module) {
    if (*module.l_name == 0) return ProgramPath();
    MappedRegion region;
    if (*module.l_name != '/' && FindMappedRegion(reinterpret_cast<std::uintptr_t>(module.l_ld), region) &&
        region.path.starts_with('/'))
        return WithoutDeletionMark(region.path, region.inode);
    return module.l_name;
}

}  // namespace ZBase::os
