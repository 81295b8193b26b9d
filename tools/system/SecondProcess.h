#pragma once

#include <string>
#include <vector>

struct SecondProcess {
    int id;
    std::string output;
};

/// Runs this program again in a process of its own, with these arguments, `input` on its standard input, and
/// returns its output; the error stream is shared. Throws `Failure` when it can't be run or exits with
/// anything but 0.
SecondProcess RunSecondProcess(const std::vector<std::string>& arguments, const std::string& input);
