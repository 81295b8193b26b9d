#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>

namespace ZBase {

/// The whole command line of this process, program and arguments. An argument with white space or quotes in
/// it, or an empty one, is quoted by the rules by which Windows would split the line again.
ZBASE_API ReturnWString GetCurrentProcessName();

/// The file name, with its extension, of the program that a process runs; empty if the system does not tell.
/// Each call keeps a handle of the process for the life of this one.
ZBASE_API ReturnWString GetProcessName(unsigned int processId);

/// Whether the process with this id, of which the low 32 bits count, is running. False also for one that this
/// process may not open, and for one that has ended and whose result nobody has asked for yet.
ZBASE_API bool IsProcessAlive(std::uint64_t processId);

/// The private bytes that this process has committed, in 32 bits: it wraps at 4 GiB. When the system does not
/// tell, a line on the standard output says so, and the result is 0.
ZBASE_API unsigned long GetPrivateBytes();

/// The path of the module that `address` lies in, cut to 259 units. Throws a `Message` for an address that
/// can't be, or where nothing is, with id -1; for one that lies in no module, with the system code as id.
ZBASE_API ReturnWString GetModuleFileNameByAddressWithinModule(const void* address);

/// Does nothing.
ZBASE_API void PauseCurrentProcess();

}  // namespace ZBase
