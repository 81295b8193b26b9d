#pragma once

#include <cstdint>

namespace ZBase::os {

/// Opens the debug help library that stands beside this one; null if there is none that can be loaded.
void* OpenDebugHelp();

void CloseDebugHelp(void* library);

using EntryPoint = void (*)();

/// An entry point of the debug help library by its name, or null.
EntryPoint FindDebugHelpEntry(void* library, const char* name);

/// The handle by which the debug help library is told of this process.
void* CurrentProcess();

/// The handle by which it is told of the calling thread.
void* CurrentThread();

/// Puts at most `count` return addresses of the calling thread into `addresses`, from the innermost outwards
/// and without the first `skip`; the innermost is the one in the caller. Gives their number. No heap, no
/// lock, and good inside a signal handler.
using StackCapture = unsigned short (*)(std::uint32_t skip, std::uint32_t count, void** addresses,
                                        std::uint32_t* hash);

/// The system's stack capture, or null if it has none.
StackCapture FindStackCapture();

}  // namespace ZBase::os
