#pragma once

#include <Base/platform/os/windows/stacks/FrameWalker.h>

namespace ZBase::os {

/// Looks up where the allocator's code is. Call before the first `StandsInAllocator`.
void FindAllocatorCode();

/// Whether one of the innermost frames is a function of the allocator, whose locks the thread may hold then.
bool StandsInAllocator(const CONTEXT& context, unsigned int frames);

}  // namespace ZBase::os
