#pragma once

#include <ucontext.h>

namespace ZBase::os {

/// Looks up the address range of the allocator's code. Call before the first `StandsInAllocator`.
void FindAllocatorCode();

/// Whether a thread that a signal interrupted is in the allocator, or in a function called from it, and so
/// may hold its locks. Runs in a signal handler. No heap, no lock.
bool StandsInAllocator(const ucontext_t& context);

}  // namespace ZBase::os
