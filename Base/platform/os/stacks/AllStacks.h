#pragma once

namespace ZBase::os {

/// Writes the stacks of all threads of this process to a file, replacing its content: of each its id, its
/// name, its state and its frames, then the modules. A regular file gets the names of functions and lines
/// too, by a process of its own. No heap, and no lock that another thread may hold for ever. It takes at most
/// 5 seconds for the stacks and 7 for the names. False if not all of it could be written.
bool WriteAllStacks(const char* path);

/// From now on the signal of that name ("SIGQUIT", "SIGHUP", "SIGUSR1" or "SIGUSR2") makes a thread, which is
/// started now, write all stacks to a new file in the directory, or in the temporary one if that is not
/// writable. The previous handler is called as well. False for any other name or without memory.
bool WriteStacksAtSignal(const unsigned short* signal, const unsigned short* directory);

}  // namespace ZBase::os
