#pragma once

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"

namespace test {

/// Runs the zbase command, as people and scripts do.
inline ChildResult ZBase(std::vector<std::string> arguments, const std::string& input = {}) {
    arguments.insert(arguments.begin(), ZBASE_COMMAND);
    return RunChild(arguments, {"LC_ALL=C.UTF-8"}, input);
}

/// One line on the error stream, nothing on the standard output.
inline void ExpectComplaint(const ChildResult& child, int exitCode, const std::string& what) {
    EXPECT_EQ(child.exitCode, exitCode);
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.errors.find('\n'), child.errors.size() - 1) << child.errors;
    EXPECT_EQ(child.errors.rfind("zbase: ", 0), 0u) << child.errors;
    EXPECT_NE(child.errors.find(what), std::string::npos) << child.errors;
}

}  // namespace test
