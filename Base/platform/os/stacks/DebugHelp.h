#pragma once

#include <cstdint>

namespace ZBase::os {

/// Opens the debug help library in this library's directory; null if none can be loaded.
void* OpenDebugHelp();

void CloseDebugHelp(void* library);

using EntryPoint = void (*)();

/// An entry point of the debug help library by its name, or null.
EntryPoint FindDebugHelpEntry(void* library, const char* name);

/// The handle of this process for the debug help library.
void* CurrentProcess();

/// The handle of the calling thread for it.
void* CurrentThread();

/// Puts at most `count` return addresses of the calling thread into `addresses`, innermost first, without the
/// first `skip`; the innermost is the one in the caller. Returns their number. No heap, no lock; may be
/// called in a signal handler.
using StackCapture = unsigned short (*)(std::uint32_t skip, std::uint32_t count, void** addresses,
                                        std::uint32_t* hash);

/// The system's stack capture, or null if it has none.
StackCapture FindStackCapture();

}  // namespace ZBase::os
