#pragma once

#include <cstdint>
#include <string>

namespace ZBase::os {

/// An opened process; null for none.
using Process = void*;

enum class EProcessAccess { Query, Wait };

/// Opens a process by its id. Null when there is none or it may not be opened.
Process OpenProcess(unsigned int id, EProcessAccess access);
void CloseProcess(Process process, EProcessAccess access);

enum class EWaitResult { Ended, Timeout, Failed };

/// Waits until the process, opened to be waited for, has ended; a zombie has ended. A null process fails.
EWaitResult WaitForProcess(Process process, unsigned int milliseconds);

/// Writes the path of the program of a process, opened to be queried, and a terminator into `path`, which has
/// space for `capacity` units. False, also if it does not fit, with nothing written.
bool GetProcessImagePath(Process process, unsigned short* path, unsigned int capacity);

/// The unit between the parts of that path.
unsigned short PathSeparator();

/// The command line of this process: its arguments, quoted so that they can be split again.
std::basic_string<unsigned short> CommandLine();

enum class EMemoryCounters { Ready, NoModule, NoFunction };

/// Finds the source of this process's memory figures. Called once, before the first of them is read.
EMemoryCounters OpenMemoryCounters();

/// Puts the bytes of private memory that this process has committed into `bytes`; false if the system
/// refuses.
bool GetCommittedBytes(std::uint64_t& bytes);

}  // namespace ZBase::os
