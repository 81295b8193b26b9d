#pragma once

#include <cstdint>

namespace ZBase::os {

/// The processors that this process can be run on at a time, at least 1: of those online the ones that it may
/// use, as far as the time that its group is given reaches.
unsigned int UsableProcessors();

/// The memory in bytes that this process can have: that of the machine, or less if its group is given less. 0
/// where the system does not tell the one and the group has no limit.
std::uint64_t UsableMemory();

}  // namespace ZBase::os
