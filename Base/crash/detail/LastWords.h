#pragma once

#include <Base/crash/detail/CrashKeysBlock.h>
#include <Base/platform/os/crash/CrashDumps.h>

#include <atomic>
#include <cstddef>

namespace ZBase::detail {

// Why a process ended itself, as fields of the report from "exception" to "abort_message". They are made when
// `std::terminate` is called, before there is a signal, and without the heap if the thread may hold its lock.

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

/// From now on `std::terminate` records the text of its exception, and then continues as before.
void WatchTerminate();

/// Ends that, unless another handler was set since.
void UnwatchTerminate();

/// Writes names and values, each terminated by a zero, into `kMostLastWords` octets, and returns their
/// number. Runs on the crashed thread. No heap, no lock.
std::size_t CopyLastWords(char* fields, os::EDumpCause cause);

}  // namespace ZBase::detail
