#pragma once

#include <windows.h>

#include <string>
#include <vector>

namespace test {

/// The two ends of a pipe, of which a child inherits one.
struct Pipe {
    HANDLE reading = nullptr;
    HANDLE writing = nullptr;

    explicit Pipe(bool childReads);
};

/// Starts a program whose streams these are. The caller closes the handle.
HANDLE StartChild(const std::vector<std::string>& command, const std::vector<std::string>& environment,
                  HANDLE input, HANDLE output, HANDLE errors);

}  // namespace test
