#pragma once

namespace ZBase::os {

// What the calling thread came from. No heap, no lock.

/// Whether the function is among the innermost callers.
bool IsCalledFrom(const void* function);

/// Whether the calling thread interrupted the allocator, or was called back by it, and so may hold its locks.
/// An operator `new` that throws holds none. `PrepareCallers` comes first.
bool MayHoldAllocator();

/// Looks up where the allocator's code is.
void PrepareCallers();

}  // namespace ZBase::os
