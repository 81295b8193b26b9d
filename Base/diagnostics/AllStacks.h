#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Writes the stacks of all threads of this process to a file, in place of what it held, for a server that
/// hangs: of each thread its id, its name, what it does, and its frames as
/// "0x<address> <module path>+0x<offset in its file> <function>+0x<displacement> at <file>:<line>", then the
/// modules with their places and build ids. What isn't known of a frame is left out.
///
/// Any thread may call it, whatever locks the others hold, that of the heap and the loader's too: each thread
/// is stopped alone and for a moment, and a process of its own, "zbase-stack-names" beside the library, looks
/// up the functions. Without it, and in what is no regular file, frames end with the offset. It takes at most
/// 5 seconds for the stacks, and threads that are left then have none, and 7 for the names. A thread that
/// can't be stopped is said to be so, and its frames, if the system tells where it waits, are a good guess.
///
/// False if `path` is null or the file can't be opened or written.
ZBASE_API bool DumpAllStacks(const char* path);

}  // namespace ZBase
