#pragma once

namespace ZBase::os {

/// Whether the ids in /proc are those that this process uses. Where there is no /proc, or it is that of
/// another namespace of processes, an id in it is somebody else's. No heap, no lock.
bool HasOwnProc();

}  // namespace ZBase::os
