#pragma once

namespace ZBase::os {

/// Writes the stacks of all threads of this process to a file, in place of what it held: of each its id, its
/// name, what it does and its frames, then the modules. A regular file gets the names of functions and lines
/// too, by a process of its own. No heap, and no lock that another thread may hold for ever. It takes at most
/// 5 seconds for the stacks and 7 for the names. False if not all of it could be written.
bool WriteAllStacks(const char* path);

/// From now on the signal of that name ("SIGQUIT", "SIGHUP", "SIGUSR1" or "SIGUSR2") has all stacks written
/// to a new file in the directory, or in the temporary one if that can't be written to, by a thread that
/// begins now. The handler that was there before is called as well. False if the name is another or there is
/// no memory.
bool WriteStacksAtSignal(const unsigned short* signal, const unsigned short* directory);

}  // namespace ZBase::os
