#pragma once

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/RemoveFolder.h"

namespace test {

namespace fs = std::filesystem;

/// A configuration and a directory for the command `zbase crash`, with programs that crash, and a server.
class CrashCommandBench : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zbase-crash-XXXXXX";
        mFolder = mkdtemp(name);
        fs::create_directory(mFolder / "received");
    }
    void TearDown() override { test::RemoveFolder(mFolder); }

    void Configure(const std::string& server, const std::string& more = "") const {
        std::ofstream(mFolder / "crash_report.ini")
            << "[Config]\nServerURL=" << server << "\nServerProdURL=" << server
            << "\ndump_path=" << (mFolder / "dumps").string() << "\n"
            << more << "[CrashKeys]\nproduct=probe\n";
    }

    ChildResult Crash(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ZBASE_COMMAND, "crash"});
        return test::RunChild(arguments, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string(),
                                          "LC_ALL=C.UTF-8"});
    }

    ChildResult Probe(const std::string& kind, const std::vector<std::string>& keys = {},
                      const std::string& program = "CrashProbe") const {
        std::vector<std::string> command = {test::ChildProgram(program), kind, "run", "7"};
        command.insert(command.end(), keys.begin(), keys.end());
        return test::RunChild(command, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string()});
    }

    std::string OnlyDump() const {
        std::string dump;
        for (const auto& entry : fs::directory_iterator(mFolder / "dumps")) dump = entry.path();
        return dump;
    }

    static bool Has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    fs::path mFolder;
};

}  // namespace test
