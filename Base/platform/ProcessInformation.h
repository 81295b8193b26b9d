#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>

namespace ZBase {

/// The whole command line of this process, program and arguments. An argument with white space or quotes, or
/// an empty one, is quoted by the rules by which Windows splits the line.
ZBASE_API ReturnWString GetCurrentProcessName();

/// The file name, with its extension, of the program of a process; empty if the system refuses. Each call
/// keeps a handle of the process for the life of this one.
ZBASE_API ReturnWString GetProcessName(unsigned int processId);

/// Whether the process with this id, of which the low 32 bits count, is running. False also for one that this
/// process may not open, and for a zombie.
ZBASE_API bool IsProcessAlive(std::uint64_t processId);

/// The private bytes that this process has committed, in 32 bits: it wraps at 4 GiB. When the system refuses,
/// it prints a line on the standard output and returns 0.
ZBASE_API unsigned long GetPrivateBytes();

/// The path of the module that contains `address`, cut to 259 units. Throws a `Message` for an impossible or
/// unmapped address, with id -1; for one outside of all modules, with the system code as id.
ZBASE_API ReturnWString GetModuleFileNameByAddressWithinModule(const void* address);

/// Does nothing.
ZBASE_API void PauseCurrentProcess();

}  // namespace ZBase
