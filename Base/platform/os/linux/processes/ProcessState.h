#pragma once

namespace ZBase::os {

/// Whether a process with this id exists and has not ended, tested without a descriptor, so also if none is
/// left or a sandbox refuses one. A zombie has ended. If the system shows only that the id is in use, as of
/// another user's process, the process counts as running.
bool IsRunning(int id);

}  // namespace ZBase::os
