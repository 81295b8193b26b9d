#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ZBase::os {

/// A mapping of this process, as the kernel lists it.
struct MappedRegion {
    std::uintptr_t start;
    std::uintptr_t end;
    unsigned long inode;  // of the file; 0 for a mapping of no file
    std::string path;     // empty for a mapping of no file
};

/// Calls `visit` with each mapping, from the lowest, until it gives true; whether it did. Uses no stream of
/// the C library: a thread that is stopped may hold the lock of those.
bool VisitMappedRegions(const std::function<bool(const MappedRegion&)>& visit);

/// Finds the mapping that `address` lies in; false if there is none.
bool FindMappedRegion(std::uintptr_t address, MappedRegion& region);

}  // namespace ZBase::os
