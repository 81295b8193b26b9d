#pragma once

#include <string>
#include <vector>

namespace test {

struct ChildResult {
    int exitCode;  // -1 if a signal ended it
    int signal;    // 0 if it exited
    bool leftCore;
    std::string output;
    std::string errors;
};

/// Runs a program to its end. `environment` holds further "NAME=VALUE" for it; a "NAME" alone removes a
/// variable.
ChildResult RunChild(const std::vector<std::string>& command,
                     const std::vector<std::string>& environment = {}, const std::string& input = {});

/// The path of a program of tests/children.
std::string ChildProgram(const std::string& name);

}  // namespace test
