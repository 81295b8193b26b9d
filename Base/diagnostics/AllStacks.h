#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Writes the stacks of all threads of this process to a file, replacing its content, for a server that
/// hangs: of each thread its id, its name, its state, and its frames as "0x<address> <module path>+0x<offset
/// in its file> <function>+0x<displacement> at <file>:<line>", then the modules with their addresses and
/// build ids. Unknown parts of a frame are left out.
///
/// Any thread may call it, whatever locks the others hold, including the heap's and the loader's: each thread
/// is stopped alone and for a moment, and a process of its own, "zbase-stack-names" beside the library, looks
/// up the functions. Without it, and in a file that is not a regular one, frames end with the offset. It
/// takes at most 5 seconds for the stacks, and threads that are left then have none, and 7 for the names. A
/// thread that can't be stopped is marked so, and its frames, if the system shows the registers of its wait,
/// are a good guess.
///
/// Where the system does not list the threads, as without /proc or a descriptor to spare, the file has the
/// calling thread only, and a line that says so.
///
/// False if `path` is null or the file can't be opened or written.
ZBASE_API bool DumpAllStacks(const char* path);

}  // namespace ZBase
