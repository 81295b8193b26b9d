#pragma once

namespace ZBase::os {

/// Has functions called around each fork of this process: `before` in front of it, and then one of the
/// others, in the parent or in the child, all on the thread that forks. Of what was asked for last, `before`
/// comes first and the others last. A process that is made in another way, without the system library's
/// `fork`, calls none. False where there is no memory for that.
bool CallAtFork(void (*before)(), void (*inParent)(), void (*inChild)());

}  // namespace ZBase::os
