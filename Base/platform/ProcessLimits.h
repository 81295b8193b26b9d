#pragma once

#include <Base/frame/Api.h>

#include <cstdint>

namespace ZBase {

// What this process may use of its machine, to size thread pools and ceilings by. Both look at each call,
// since an administrator may change it while the process runs. Throw `std::bad_alloc`.

/// The processors that it can run on at a time, at least 1: those that it may be scheduled on (affinity), or
/// fewer where its control group (version 2) has less time than that, a part of one counting as one.
ZBASE_API unsigned int GetUsableProcessors();

/// The memory in bytes that it can have: that of the machine, or the limit of its control group (version 2)
/// and those above it where that is less. What others hold is not taken off. 0 where the system does not
/// tell.
ZBASE_API std::uint64_t GetUsableMemory();

}  // namespace ZBase
