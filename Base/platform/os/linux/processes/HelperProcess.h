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
    char origin[PATH_MAX + 16];  // the variable by which the loader knows its directory without /proc
    char* arguments[2];
    char* environment[kMostVariables + 1];

    /// Finds it by its file name; its environment has what it needs to be loaded. No heap, no lock. False if
    /// its path is too long.
    bool Find(const char* name);

    /// Where the next variable goes.
    char** EndOfEnvironment();
};

/// The memory of one run of a helper; new processes run on it. It must be free in a forked child.
struct HelperLaunch {
    static constexpr std::size_t kStackSize = 32768;

    std::atomic<bool> isTaken;
    std::atomic<pid_t> remaining;  // the process of a run that was not over in time, or 0
    const HelperProgram* program;
    int connection;
    unsigned int seconds;
    alignas(16) char outerStack[kStackSize];
    alignas(16) char innerStack[kStackSize];

    /// Takes it for a run; false if it is in use. No heap, no lock.
    bool Take();

    /// Starts the program, passes it the pieces, one after the other, on its standard input, and waits at
    /// most `limit` seconds for its reply of one character. Returns that, or 0. Afterwards it can be taken
    /// again when no process runs on this memory any more. No heap, no lock, and no function of the C library
    /// that has one.
    char Run(const HelperProgram& helper, const ReportPiece* pieces, std::size_t count, unsigned int limit);
};

}  // namespace ZBase::os
