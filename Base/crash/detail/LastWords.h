#pragma once

#include <Base/crash/detail/CrashKeysBlock.h>
#include <Base/platform/os/CrashDumps.h>

#include <atomic>
#include <cstddef>

namespace ZBase::detail {

// Why a process ended itself, in words, as fields of the report from "exception" to "abort_message". They are
// put together when `std::terminate` is called, before there is a signal, and without the heap if
// the thread may hold its lock.

inline constexpr std::size_t kMostLastWords = 16384;  // octets of all
inline constexpr std::size_t kThreadsWithWords = 4;   // that end the process at the same time

/// What one thread said: names and values, each terminated by a zero.
struct ThreadWords {
    /// A value is cut at `most` octets, and where there is no more room.
    void Add(const char* name, const char* value, std::size_t most = kMostLastWords);

    std::atomic<unsigned long> thread;  // whose they are; 0 for nobody's
    std::size_t size;
    char fields[kMostLastWords / 2];
};

/// What the crashed thread said, as a dump holds it.
struct LastWordsBlock {
    CrashKeysBlock head;
    char fields[kMostLastWords];
};

/// From now on `std::terminate` keeps what is said of its exception, and then goes on as before.
void WatchTerminate();

/// The end of that, unless someone else has set a handler since.
void UnwatchTerminate();

/// Writes names and values, each terminated by a zero, into `kMostLastWords` octets, and gives how many there
/// are. Runs on the crashed thread. No heap, no lock.
std::size_t CopyLastWords(char* fields, os::EDumpCause cause);

}  // namespace ZBase::detail
