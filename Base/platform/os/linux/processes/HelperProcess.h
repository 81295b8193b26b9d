#pragma once

#include <sys/types.h>
#include <atomic>
#include <climits>
#include <cstddef>

#include <Base/platform/os/ReportSender.h>

namespace ZBase::os {

/// A program that stands beside the library, with the environment that it is given.
struct HelperProgram {
    static constexpr std::size_t kMostVariables = 24;

    char path[PATH_MAX];
    char* arguments[2];
    char* environment[kMostVariables + 1];

    /// Finds it by its file name. No heap, no lock. False if its path is too long.
    bool Find(const char* name);
};

/// What one run of a helper needs; memory of its own, since new processes stand on it. A child of fork must
/// find it free.
struct HelperLaunch {
    static constexpr std::size_t kStackSize = 32768;

    std::atomic<bool> isTaken;
    const HelperProgram* program;
    int connection;
    unsigned int seconds;
    alignas(16) char outerStack[kStackSize];
    alignas(16) char innerStack[kStackSize];

    /// Starts the program, hands it the pieces, one behind the other, on its standard input, and waits at
    /// most `limit` seconds for the one character that it answers. Gives that, or 0. `isTaken` is true
    /// behind it if a process still stands on this memory. No heap, no lock, and nothing of the C library
    /// that has one.
    char Run(const HelperProgram& helper, const ReportPiece* pieces, std::size_t count, unsigned int limit);
};

}  // namespace ZBase::os
