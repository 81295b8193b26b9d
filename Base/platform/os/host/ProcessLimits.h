#pragma once

#include <cstdint>

namespace ZBase::os {

/// The processors that this process can run on at a time, at least 1: those online that its affinity allows,
/// within the time of its control group.
unsigned int UsableProcessors();

/// The memory in bytes that this process can have: that of the machine, or less if its group is given less. 0
/// where the system does not tell the one and the group has no limit.
std::uint64_t UsableMemory();

}  // namespace ZBase::os
