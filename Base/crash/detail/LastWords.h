#pragma once

#include <Base/platform/os/CrashDumps.h>

#include <cstddef>

namespace ZBase::detail {

// Why a process ended itself, in words, as fields of the report from "exception" to "abort_message". They are
// put together when `std::terminate` is called, before there is a signal, and without the heap if
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
