#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace ZBase::os {

/// A mapping of this process, as the kernel lists it.
struct MappedRegion {
    std::uintptr_t start;
    std::uintptr_t end;
    unsigned long inode;  // of the file; 0 without one
    std::string path;     // empty without a file
};

/// Calls `visit` with each mapping, lowest first, until it returns true; returns whether it did. Uses no
/// stream of the C library: a stopped thread may hold its lock.
bool VisitMappedRegions(const std::function<bool(const MappedRegion&)>& visit);

/// Finds the mapping that contains `address`; false if there is none.
bool FindMappedRegion(std::uintptr_t address, MappedRegion& region);

}  // namespace ZBase::os
