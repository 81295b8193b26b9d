#pragma once

namespace ZBase::os {

/// Whether a process with this id exists and has not ended, asked without a descriptor, so also where none is
/// left or a sandbox refuses one. A process whose result nobody has asked for yet has ended. Where the system
/// tells no more than that the id is taken, as of another user's process, it is taken for running.
bool IsRunning(int id);

}  // namespace ZBase::os
