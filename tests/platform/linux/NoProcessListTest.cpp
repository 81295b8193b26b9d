#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"

// A process without /proc.

namespace {

namespace fs = std::filesystem;

constexpr int kNotAllowed = 250;

// The library's results in a process that can no longer read files and links.
test::ChildResult AskBlind(const std::vector<std::string>& question) {
    std::vector<std::string> command = {test::ChildProgram("BlindProbe")};
    command.insert(command.end(), question.begin(), question.end());
    return test::RunChild(command);
}

class NoProcessList : public testing::Test {
protected:
    void SetUp() override {
        if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer reads the list itself";
    }
};

TEST_F(NoProcessList, ArgumentsAreKnown) {
    const test::ChildResult result =
        AskBlind({"command", "", "a b", "say \"x\"", "back\\", "\u00E9\U0001F600", "last"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, test::ChildProgram("BlindProbe") +
                                 " command \"\" \"a b\" \"say \\\"x\\\"\" back\\ \u00E9\U0001F600 last");
}

TEST_F(NoProcessList, ArgumentsAreInTheirOrderAlsoAfterTheProgramSortedThem) {
    const test::ChildResult result = AskBlind({"sorted", "one", "-a", "two", "-b"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, test::ChildProgram("BlindProbe") + " sorted one -a two -b");
}

TEST_F(NoProcessList, ManyArgumentsAreKnown) {
    const std::string large(100000, 'x');
    std::vector<std::string> question = {"command"};
    std::string expected = test::ChildProgram("BlindProbe") + " command";
    for (int i = 0; i != 15; ++i) {
        question.push_back(large + std::to_string(i));
        expected += " " + question.back();
    }
    const test::ChildResult result = AskBlind(question);
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_TRUE(result.output == expected) << result.output.size() << " of " << expected.size();
}

TEST_F(NoProcessList, NameOfTheProgramIsKnown) {
    const test::ChildResult result = AskBlind({"name"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, "BlindProbe");
}

TEST_F(NoProcessList, PathOfTheProgramsModuleIsKnown) {
    const test::ChildResult result = AskBlind({"module"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, test::ChildProgram("BlindProbe"));
}

TEST_F(NoProcessList, AddressInTheHeapIsStillInNoModule) {
    const test::ChildResult result = AskBlind({"heap"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, "126");
}

TEST_F(NoProcessList, BytesOfMemoryAreSaidToBeUnknown) {
    const test::ChildResult result = AskBlind({"bytes"});
    if (result.exitCode == kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result.output, "GetProcessMemoryInfo failed\n0");
}

}  // namespace
