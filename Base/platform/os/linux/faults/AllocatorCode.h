#pragma once

#include <ucontext.h>

namespace ZBase::os {

/// Looks up where the allocator's code is. Call before the first `StandsInAllocator`.
void FindAllocatorCode();

/// Whether a thread that a signal interrupted stands in the allocator, or in what that called, and so may
/// hold its locks. Runs in a signal handler. No heap, no lock.
bool StandsInAllocator(const ucontext_t& context);

}  // namespace ZBase::os
