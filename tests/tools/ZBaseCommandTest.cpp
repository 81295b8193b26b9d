#include <string>

#include "tests/tools/ZBaseCommand.h"

namespace {

using test::ChildResult;
using test::ExpectComplaint;
using test::ZBase;

TEST(ZBaseCommand, ComplainsInOneLine) {
    ExpectComplaint(ZBase({}), 2, "subcommand");
    ExpectComplaint(ZBase({"crash"}), 2, "subcommand");
    ExpectComplaint(ZBase({"nonsense"}), 2, "see zbase --help");
    ExpectComplaint(ZBase({"text"}), 2, "FILE is required");
    ExpectComplaint(ZBase({"text", "/dev/null", "--to", "morse"}), 2, "--to");
    ExpectComplaint(ZBase({"text", "/no/such/file"}), 1, "/no/such/file: No such file or directory");
    ExpectComplaint(ZBase({"text", "/tmp"}), 1, "/tmp: Is a directory");
}

TEST(ZBaseCommand, HelpsOnTheStandardOutput) {
    const ChildResult child = ZBase({"--help"});
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_EQ(child.errors, "");
    for (const char* command : {"road", "error", "text", "message"}) {
        EXPECT_NE(child.output.find(command), std::string::npos) << command;
    }
}

TEST(ZBaseCommand, HelpShowsDefaultsAndNoHiddenOption) {
    const std::string text = ZBase({"text", "--help"}).output;
    const bool isShown = text.find("}=utf8\n") != std::string::npos ||
                         text.find("} [utf8] \n") != std::string::npos;  // by newer parsers
    EXPECT_TRUE(isShown) << text;
    EXPECT_NE(text.find("--output TEXT "), std::string::npos) << text;
    const std::string test = ZBase({"crash", "test", "--help"}).output;
    EXPECT_NE(test.find("--local"), std::string::npos) << test;
    EXPECT_EQ(test.find("--dump"), std::string::npos) << test;
}

TEST(ZBaseCommand, EndsInSilenceWhenNobodyReadsItsOutput) {
    // The reader has closed the pipe before the first write, since the command gets its text only then.
    const std::string script = "(sleep 0.2; head -c 300000 /dev/zero | tr '\\0' x) | " +
                               std::string(ZBASE_COMMAND) + " text - --to utf8 | true; exit ${PIPESTATUS[1]}";
    const ChildResult child = test::RunChild({"/bin/bash", "-c", script});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.errors, "");
}

TEST(ZBaseCommand, SuggestsTheCommandThatAWordIsLike) {
    ExpectComplaint(ZBase({"mesage"}), 2,
                    "; \"mesage\" is none, did you mean \"message\"?; see zbase --help");
    ExpectComplaint(ZBase({"crash", "shwo"}), 2, ", did you mean \"show\"?");
    const ChildResult child = ZBase({"nothing-like-it"});
    EXPECT_EQ(child.exitCode, 2);
    EXPECT_EQ(child.errors.find("did you mean"), std::string::npos);
}

TEST(ZBaseCommand, AnEmptyArgumentIsAWrongOne) {
    for (const char* command : {"road", "message", "error", "text", "guid", "sid"})
        ExpectComplaint(ZBase({command, ""}), 2, "empty");
    ExpectComplaint(ZBase({"text", "x", "--output", ""}), 2, "empty");
}

TEST(ZBaseCommand, ComplainsWhenThereIsNoRoomForItsOutput) {
    const std::string script = std::string(ZBASE_COMMAND) + " error 5 > /dev/full";
    ExpectComplaint(test::RunChild({"/bin/bash", "-c", script}), 1,
                    "standard output: No space left on device");
}

}  // namespace
