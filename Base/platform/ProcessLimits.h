#pragma once

#include <Base/frame/Api.h>

#include <cstdint>

namespace ZBase {

// The limits of this process on its machine, to size thread pools and ceilings by. Both are read at each
// call, since an administrator may change them while the process runs. Throw `std::bad_alloc`.

/// The processors that it can run on at a time, at least 1: those of the calling thread's affinity, or
/// fewer if its control group (version 2) has less time than that, rounded up.
ZBASE_API unsigned int GetUsableProcessors();

/// The memory in bytes that it can have: that of the machine, or the limit of its control group (version 2)
/// and those above it where that is less. What others hold is not taken off. 0 where the system does not
/// tell.
ZBASE_API std::uint64_t GetUsableMemory();

}  // namespace ZBase
