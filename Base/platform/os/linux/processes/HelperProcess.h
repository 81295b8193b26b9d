#pragma once

#include <sys/types.h>
#include <atomic>
#include <climits>
#include <cstddef>

#include <Base/platform/os/crash/ReportSender.h>

namespace ZBase::os {

/// A program in the library's directory, with its environment.
struct HelperProgram {
    static constexpr std::size_t kMostVariables = 24;

    char path[PATH_MAX];
    char* arguments[2];
    char* environment[kMostVariables + 1];

    /// Finds it by its file name. No heap, no lock. False if its path is too long.
    bool Find(const char* name);
};

/// The memory of one run of a helper; new processes run on it. It must be free in a forked child.
struct HelperLaunch {
    static constexpr std::size_t kStackSize = 32768;

    std::atomic<bool> isTaken;
    const HelperProgram* program;
    int connection;
    unsigned int seconds;
    alignas(16) char outerStack[kStackSize];
    alignas(16) char innerStack[kStackSize];

    /// Starts the program, passes it the pieces, one after the other, on its standard input, and waits at
    /// most `limit` seconds for its reply of one character. Returns that, or 0. Afterwards `isTaken` is true
    /// if a process still runs on this memory. No heap, no lock, and no function of the C library that has
    /// one.
    char Run(const HelperProgram& helper, const ReportPiece* pieces, std::size_t count, unsigned int limit);
};

}  // namespace ZBase::os
