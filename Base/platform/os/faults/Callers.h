#pragma once

namespace ZBase::os {

// The callers of the calling thread. No heap, no lock.

/// Whether the function is among the innermost callers.
bool IsCalledFrom(const void* function);

/// Whether the calling thread interrupted the allocator, or was called back by it, and so may hold its locks.
/// An operator `new` that throws holds none. Call `PrepareCallers` first.
bool MayHoldAllocator();

/// Looks up the address range of the allocator's code.
void PrepareCallers();

}  // namespace ZBase::os
