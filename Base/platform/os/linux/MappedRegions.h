#pragma once

#include <cstdint>
#include <string>

namespace ZBase::os {

/// A mapping of this process, as the kernel lists it.
struct MappedRegion {
    std::uintptr_t start;
    std::string path;  // empty for a mapping of no file
};

/// Finds the mapping that `address` lies in; false if there is none.
bool FindMappedRegion(std::uintptr_t address, MappedRegion& region);

}  // namespace ZBase::os
