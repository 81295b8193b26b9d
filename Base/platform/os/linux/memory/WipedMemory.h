#pragma once

#include <cstddef>

namespace ZBase::os {

/// Zeroed pages that the child of a fork finds zeroed again, while a child that shares the memory, as one of
/// vfork, sees what is there. They are never released. Null if there is no memory.
void* AllocateWipedMemory(std::size_t size);

}  // namespace ZBase::os
