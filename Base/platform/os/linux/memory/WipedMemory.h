#pragma once

#include <cstddef>

namespace ZBase::os {

/// Zeroed pages that are zero again in a forked child (MADV_WIPEONFORK), while a child that shares the
/// memory, as one of vfork, sees the content. They are never released. Null if there is no memory.
void* AllocateWipedMemory(std::size_t size);

}  // namespace ZBase::os
