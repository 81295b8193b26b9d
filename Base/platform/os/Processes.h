#pragma once

#include <cstdint>
#include <string>

namespace ZBase::os {

/// A process that was opened; null for none.
using Process = void*;

enum class EProcessAccess { Query, Wait };

/// Opens a process by its id. Gives null when there is none or it may not be opened.
Process OpenProcess(unsigned int id, EProcessAccess access);
void CloseProcess(Process process, EProcessAccess access);

enum class EWaitResult { Ended, Timeout, Failed };

/// Waits until the process, opened to be waited for, has ended; a process that nobody has asked for its
/// result yet has ended too. A null process fails.
EWaitResult WaitForProcess(Process process, unsigned int milliseconds);

/// Writes the path of the program that a process, opened to be queried, runs, and a terminator into `path`,
/// which has room for `capacity` units. False, also where it does not fit, with nothing written.
bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity);

/// The unit between the parts of that path.
unsigned short PathSeparator();

/// The command line of this process: its arguments, quoted so that they can be split again.
std::basic_string<unsigned short> CommandLine();

enum class EMemoryCounters { Ready, NoModule, NoFunction };

/// Finds what tells the memory figures of this process. Called once, before the first of them is asked for.
EMemoryCounters OpenMemoryCounters();

/// Puts the bytes of private memory that this process has committed into `bytes`; false if the system
/// refuses.
bool GetCommittedBytes(std::uint64_t& bytes);

}  // namespace ZBase::os
