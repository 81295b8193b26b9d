#include "tools/zbase/terminal/Progress.h"

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/ChildProcess.h"

namespace {

TEST(ProgressLine, IsABarWhereTheTotalIsKnown) {
    EXPECT_EQ(ProgressLine("file", 0, 200, 79), "file  [" + std::string(30, '.') + "] 0 %");
    EXPECT_EQ(ProgressLine("file", 99, 200, 79),
              "file  [" + std::string(14, '#') + std::string(16, '.') + "] 49 %");
    EXPECT_EQ(ProgressLine("file", 200, 200, 79), "file  [" + std::string(30, '#') + "] 100 %");
    EXPECT_EQ(ProgressLine("growing", 300, 200, 79), "growing  [" + std::string(30, '#') + "] 100 %");
    EXPECT_EQ(ProgressLine("file", 300, UINT64_MAX, 79), "file  [" + std::string(30, '.') + "] 0 %");
}

TEST(ProgressLine, IsTheBytesWhereItIsNot) {
    EXPECT_EQ(ProgressLine("-", 1536, {}, 79), "-  1.50KB");
    EXPECT_EQ(ProgressLine("empty when opened", 1536, 0, 79), "empty when opened  1.50KB");
}

TEST(ProgressLine, FitsIntoTheTerminal) {
    EXPECT_EQ(ProgressLine("/a/very/long/path/of/a/file/in/many/folders.txt", 1, 1, 79),
              ".../of/a/file/in/many/folders.txt  [" + std::string(30, '#') + "] 100 %");
    EXPECT_EQ(ProgressLine("file", 1, 1, 39), "[" + std::string(30, '#') + "] 100 %");
    EXPECT_EQ(ProgressLine("file", 1, 1, 10), "[#########");
    EXPECT_EQ(ProgressLine("a\nb\033", 1536, {}, 79), "a\\x0Ab\\x1B  1.50KB");
}

// The error stream of a command that waits for its input; the standard output is redirected.
std::string OnTerminal(const std::string& terminal, const std::string& redirection) {
    const std::string command = "(printf a; sleep 1.2; printf b; sleep 0.2; printf c) | " ZBASE_COMMAND
                                " text - >/dev/null " +
                                redirection;
    return test::RunChild({"/usr/bin/script", "--quiet", "--return", "--command", command, "/dev/null"},
                          {"LC_ALL=C.UTF-8", "TERM=" + terminal, "SHELL=/bin/bash"})
        .output;
}

TEST(Progress, IsShownFromTheFirstSecondOnAndTakenAway) {
    const std::string shown = OnTerminal("xterm", "");
    EXPECT_EQ(shown.rfind("\r-  2.00Bytes\033[K", 0), 0u) << shown;
    ASSERT_GE(shown.size(), 4u);
    EXPECT_EQ(shown.substr(shown.size() - 4), "\r\033[K");
}

TEST(Progress, IsNotShownWhereItWouldStay) {
    EXPECT_EQ(OnTerminal("dumb", ""), "");
    EXPECT_EQ(OnTerminal("xterm", "2>/dev/null"), "");
}

}  // namespace
