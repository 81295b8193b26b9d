#pragma once

#include <string>
#include <vector>

/// What a program prints. Throws `Failure` if it can't be run, or fails and prints nothing; its error stream
/// is dropped.
std::string OutputOf(const std::vector<std::string>& command);
