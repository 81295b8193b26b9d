#include <Base/platform/os/host/ProcessLimits.h>

#include <sched.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <memory>

#include <Base/platform/os/host/Host.h>
#include <Base/platform/os/linux/files/WholeFile.h>
#include <Base/platform/os/linux/host/ControlGroup.h>

namespace ZBase::os {

namespace {

ControlGroup OwnGroup() {
    std::string groups;
    std::string mounts;
    ReadWholeFile("/proc/self/cgroup", groups);
    ReadWholeFile("/proc/self/mountinfo", mounts);
    return ControlGroup::FromProcess(groups, mounts);
}

struct FreeSet {
    void operator()(cpu_set_t* set) const { CPU_FREE(set); }
};

// The kernel refuses a set smaller than its own.
unsigned int AllowedProcessors() {
    constexpr int kMostProcessors = 1 << 16;
    for (int count = CPU_SETSIZE; count <= kMostProcessors; count *= 2) {
        const std::unique_ptr<cpu_set_t, FreeSet> set(CPU_ALLOC(count));
        const std::size_t size = CPU_ALLOC_SIZE(count);
        if (set == nullptr) break;
        CPU_ZERO_S(size, set.get());
        if (sched_getaffinity(0, size, set.get()) == 0)
            return static_cast<unsigned int>(CPU_COUNT_S(size, set.get()));
        if (errno != EINVAL) break;
    }
    return ProcessorCount();
}

}  // namespace

unsigned int UsableProcessors() {
    const std::uint64_t allowed = std::max(1u, AllowedProcessors());
    return static_cast<unsigned int>(std::min(allowed, OwnGroup().ProcessorLimit()));
}

std::uint64_t UsableMemory() {
    const long pages = sysconf(_SC_PHYS_PAGES);
    const long pageSize = sysconf(_SC_PAGESIZE);
    const std::uint64_t limit = OwnGroup().MemoryLimit();
    if (pages <= 0 || pageSize <= 0) return limit == ControlGroup::kUnlimited ? 0 : limit;
    return std::min(static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize), limit);
}

}  // namespace ZBase::os
