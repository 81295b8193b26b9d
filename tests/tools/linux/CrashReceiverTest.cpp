#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/linux/CrashCommandBench.h"

// The development server, beside what sends to it.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashReceiver : public test::CrashCommandBench {};

TEST_F(CrashReceiver, RefusesWhatItCanNotServe) {
    const std::string received = mFolder / "received";
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* said;
    } kCases[] = {
        {{(mFolder / "missing").string()}, 1, "is no directory that can be written to"},
        {{(mFolder / "missing").string(), "0"}, 1, "is no directory that can be written to"},
        {{"/dev/null"}, 1, "is no directory that can be written to"},
        {{received, "http"}, 2, "http is no port"},
        {{received, "65536"}, 2, "65536 is no port"},
        {{received, "8080x"}, 2, "8080x is no port"},
        {{received, ""}, 2, " is no port"},
        {{received, "-1"}, 2, "there is no option -1"},
        {{"--port", "1"}, 2, "there is no option --port"},
        {{}, 2, "usage: crash-receiver"},
        {{received, "0", "certificate"}, 2, "usage: crash-receiver"},
    };
    for (const auto& one : kCases) {
        std::vector<std::string> command = {ZBASE_CRASH_RECEIVER};
        command.insert(command.end(), one.arguments.begin(), one.arguments.end());
        const ChildResult child = test::RunChild(command);
        EXPECT_EQ(child.exitCode, one.status) << child.errors;
        EXPECT_TRUE(Has(child.errors, one.said)) << child.errors;
    }
}

TEST_F(CrashReceiver, ThatCanNotStoreLeavesTheReportWithItsSender) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    fs::remove(mFolder / "received");
    EXPECT_EQ(Crash({"send"}).exitCode, 1);
    EXPECT_NE(OnlyDump(), "");
    fs::create_directory(mFolder / "received");
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
}

TEST_F(CrashReceiver, GoesOnBehindTheReportsThatAreThere) {
    std::ofstream(mFolder / "received" / "7-log.txt") << "of an earlier one";
    std::ofstream(mFolder / "received" / "notes.txt") << "nobody's";
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "received" / "8.dmp"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "1.dmp"));
}

}  // namespace
