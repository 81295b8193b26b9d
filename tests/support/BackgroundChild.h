#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

/// A program that runs during the test, and is ended with this object.
class BackgroundChild {
public:
    /// `environment` holds further "NAME=VALUE" for it.
    explicit BackgroundChild(const std::vector<std::string>& command,
                             const std::vector<std::string>& environment = {});
    ~BackgroundChild();
    BackgroundChild(const BackgroundChild&) = delete;
    BackgroundChild& operator=(const BackgroundChild&) = delete;

    /// The next line of its output, without its end; waits for it. Empty at the end of the output.
    std::string ReadLine();

    /// Where the system has signals.
    void Signal(int signal) const;

    /// Waits for its end; returns the signal that ended it, or 0.
    int Wait();

private:
    std::intptr_t mChild = 0;  // the system's for a process, and for the reading end of a pipe
    std::intptr_t mOutput = -1;
};

}  // namespace test
