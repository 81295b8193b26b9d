#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace ZBase::os {

/// A control group of version 2: a folder below the mount of the hierarchy. A group's limits apply to all
/// groups below it, so each result is the smallest from the group up to the mount.
class ControlGroup {
public:
    static constexpr std::uint64_t kUnlimited = UINT64_MAX;

    /// The group at the end of `path`, such as "/system.slice/server.service", below `mount`.
    ControlGroup(std::string mount, std::string_view path);

    /// From the contents of /proc/self/cgroup and /proc/self/mountinfo. Without such a hierarchy nothing is
    /// limited.
    static ControlGroup FromProcess(std::string_view groups, std::string_view mounts);

    /// Bytes, or `kUnlimited`.
    std::uint64_t MemoryLimit() const;

    /// Whole processors, rounded up, or `kUnlimited`.
    std::uint64_t ProcessorLimit() const;

private:
    template <class Read>
    std::uint64_t Smallest(const char* file, Read read) const;

    std::string mMount;  // empty: there is none
    std::string mPath;   // without "/" at its end
};

}  // namespace ZBase::os
