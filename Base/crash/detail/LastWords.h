#pragma once

#include <Base/platform/os/CrashDumps.h>

#include <cstddef>

namespace ZBase::detail {

// Why a process ended itself, in words, as crash keys of the report:
//
// - exception: the text of an uncaught exception, and of those that are nested in it, a line or tree each
// - exception_type: its type
// - terminate: "called without an exception", unless one of the others says more
// - pure_call: a pure virtual function was called
// - abort_message: what the C library said when it aborted, as of an assertion or of a damaged heap
//
// They are put together when `std::terminate` is called, before there is a signal, and without the heap if
// the thread may hold its lock.

inline constexpr std::size_t kMostLastWords = 16384;  // octets of all

/// From now on `std::terminate` keeps what is said of its exception, and then goes on as before.
void WatchTerminate();

/// The end of that, unless someone else has set a handler since.
void UnwatchTerminate();

/// Writes names and values, each terminated by a zero, into `kMostLastWords` octets, and gives how many there
/// are. Runs on the crashed thread. No heap, no lock.
std::size_t CopyLastWords(char* fields, os::EDumpCause cause);

}  // namespace ZBase::detail
