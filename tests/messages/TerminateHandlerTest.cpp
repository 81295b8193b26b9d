#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>

namespace {

test::ChildResult Terminate(const char* kind) {
    return test::RunChild({test::ChildProgram("TerminateProbe"), kind});
}

constexpr const char* kTree =
    "An exception was not caught:\n"
    "Server 110  could not load (Server message 110)\n"
    "  Server 103  names.txt is not text. (Server message 103)\n";

}  // namespace

TEST(TerminateHandler, TellsTheTreeOnceBeforeTheFormerHandlerEndsTheProcess) {
    const test::ChildResult child = Terminate("message");
    EXPECT_EQ(child.errors, std::string(kTree) + "the former handler\n");
    EXPECT_EQ(child.output, "");
    EXPECT_EQ(child.exitCode, 7);
}

TEST(TerminateHandler, InstalledAgainBehindOneThatCallsItTellsTheTreeOnce) {
    const test::ChildResult child = Terminate("chained");
    EXPECT_EQ(child.errors, std::string(kTree) + "a handler in between\nthe former handler\n");
    EXPECT_EQ(child.exitCode, 7);
}

TEST(TerminateHandler, LeavesTheEndToTheHandlerOfTheLanguage) {
    const test::ChildResult child = Terminate("default");
    EXPECT_EQ(child.errors.find(kTree), 0u) << child.errors;
    EXPECT_EQ(child.signal, SIGABRT);
}

TEST(TerminateHandler, TellsOtherExceptionsAsWell) {
    EXPECT_EQ(Terminate("standard").errors,
              "An exception was not caught:\n"
              "Unknown -1  what it says (Unknown message -1)\n"
              "the former handler\n");
}

TEST(TerminateHandler, SaysNothingWhereThereIsNoException) {
    EXPECT_EQ(Terminate("none").errors, "the former handler\n");
}
