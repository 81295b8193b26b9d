#pragma once

#include <sys/types.h>
#include <string>
#include <vector>

namespace test {

/// A program that runs during the test, and is ended with this object.
class BackgroundChild {
public:
    explicit BackgroundChild(const std::vector<std::string>& command);
    ~BackgroundChild();
    BackgroundChild(const BackgroundChild&) = delete;
    BackgroundChild& operator=(const BackgroundChild&) = delete;

    /// The next line of its output, without its end; waits for it. Empty at the end of the output.
    std::string ReadLine();

    void Signal(int signal) const;

    /// Waits for its end; returns the signal that ended it, or 0.
    int Wait();

private:
    pid_t mChild = 0;
    int mOutput = -1;
};

}  // namespace test
