#pragma once

namespace DebugHelp {

/// Calls a function, which throws nothing, where it has a MiB of stack: elfutils takes 150 KiB for the lines
/// of one unit, and whoever asks for a symbol may have 64 KiB in all. One call at a time. False if there is
/// no memory for such a stack.
bool CallOnRoomyStack(void (*function)(void*), void* argument);

}  // namespace DebugHelp
