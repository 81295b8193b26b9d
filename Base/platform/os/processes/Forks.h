#pragma once

namespace ZBase::os {

/// Registers functions that are called around each fork of this process: `before` in front of it, and then
/// one of the others, in the parent or in the child, all on the forking thread. Of the last registration
/// `before` comes first and the others last. A process that is made without the system library's `fork` calls
/// none. False if there is no memory for that.
bool CallAtFork(void (*before)(), void (*inParent)(), void (*inChild)());

}  // namespace ZBase::os
