#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"

namespace test {

using CrashKeys = std::map<std::string, std::string>;

/// A dump, read by Breakpad's own reader.
struct ReadDump {
    std::string reason;              // "SIGSEGV /SEGV_MAPERR"
    int crashedThread;               // -1 if it can't be read
    std::vector<std::string> stack;  // functions of the crashed thread, the innermost first
    bool Has(const std::string& function) const;
};

ReadDump ReadDumpFile(const std::filesystem::path& dump);

/// The id of a user without rights, for tests that run as the superuser.
std::string OrdinaryUser();

/// A directory with a configuration, a report server and a crashing program.
class CrashBench : public testing::Test {
protected:
    CrashBench();
    ~CrashBench() override;

    /// Starts the report server; `certificate` is a PEM file with its key in "FILE.key".
    void StartServer(const std::string& certificate = "");

    /// Writes the configuration: both servers are `mServer`, dumps go to `mDumps`.
    void Configure(const std::string& moreSettings = "", const std::string& crashKeys = "");
    void WriteConfig(const std::string& content) const;
    std::string Config() const { return (mFolder / "crash_report.ini").string(); }

    /// Runs CrashProbe, or another program of tests/children.
    ChildResult Crash(const std::vector<std::string>& arguments,
                      const std::vector<std::string>& environment = {},
                      const std::string& program = "CrashProbe") const;
    std::unique_ptr<BackgroundChild> CrashInBackground(const std::vector<std::string>& arguments,
                                                       const std::string& program = "CrashProbe") const;

    std::vector<std::filesystem::path> LeftDumps() const;
    std::vector<std::filesystem::path> ReceivedDumps() const;
    CrashKeys ReceivedKeys(int number) const;

    /// The server's output for the next report; waits for it.
    std::string NextReport() { return mpServer->ReadLine(); }

    std::filesystem::path mFolder;
    std::filesystem::path mDumps;
    std::filesystem::path mReceived;
    std::string mServer;  // its address

private:
    std::vector<std::string> Environment() const;

    std::unique_ptr<BackgroundChild> mpServer;
};

}  // namespace test
