#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/ChildProcess.h"

namespace {

const std::string kLog =
    "15 [plain 100%s %n]\n"
    "15 [wide \xC3\xA9]\n";

// A text that is only a line end has no entry of its own.
TEST(DebugOutput, GoesToTheSystemsLogAtDebugLevelAndNowhereElse) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("DebugOutputProbe")});
    EXPECT_EQ(child.output, kLog);
    EXPECT_EQ(child.errors, "");
}

// Without a reader the C library's own log does not get all texts; a program's own does.
TEST(DebugOutput, GoesToALogOfTheProgramsOwnHoweverMuchItIs) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("DebugOutputProbe"), "5000"});
    EXPECT_EQ(std::count(child.output.begin(), child.output.end(), '\n'), 5000);
}

TEST(DebugOutput, GoesToTheErrorStreamTooWhenADebuggerIsThere) {
    const test::ChildResult child =
        test::RunChild({"/usr/bin/env", "gdb", "-batch", "-nx", "-ex", "set debuginfod enabled off", "-ex",
                        "run", test::ChildProgram("DebugOutputProbe")});
    EXPECT_NE(child.output.find(kLog), std::string::npos) << child.output;
    // Each text and its line end: for two null texts and an empty one only the latter.
    const std::string told =
        "plain 100%s %n\r\n"
        "\r\n"
        "\r\n"
        "\r\n"
        "\r\n\n\r\n"
        "wide \xC3\xA9\r\n";
    EXPECT_NE(child.errors.find(told), std::string::npos) << testing::PrintToString(child.errors);
}

}  // namespace
