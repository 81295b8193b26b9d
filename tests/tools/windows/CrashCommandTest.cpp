#include <Base/ZBase.h>
#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/ScratchFolder.h"

// zbase crash, as an operator uses it there.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

constexpr char kNobody[] = "http://127.0.0.1:1/";

class CrashCommand : public test::ScratchFolder {
protected:
    CrashCommand() { fs::create_directory(mFolder / "received"); }

    void Configure(const std::string& server, const std::string& more = "") const {
        std::ofstream(mFolder / "crash_report.ini")
            << "[Config]\nServerURL=" << server << "\nServerProdURL=" << server
            << "\ndump_path=" << (mFolder / "dumps").string()
            << "\ndump_seconds=60\n"  // a machine may be busy
            << more << "[CrashKeys]\nproduct=probe\n";
    }

    ChildResult Run(std::vector<std::string> command) const {
        return test::RunChild(command, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string()});
    }

    ChildResult Crash(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ZBASE_COMMAND, "crash"});
        return Run(arguments);
    }

    ChildResult Probe(const std::string& kind) const {
        return Run({test::ChildProgram("WindowsCrashProbe"), kind});
    }

    std::string OnlyDump() const {
        std::string dump;
        for (const auto& entry : fs::directory_iterator(mFolder / "dumps")) dump = entry.path().string();
        return dump;
    }

    static bool Has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }
};

TEST_F(CrashCommand, CheckOfAGoodConfigurationSucceeds) {
    Configure(kNobody);
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.exitCode, 0) << child.output;
    EXPECT_TRUE(Has(child.output, "named by ZENT_CRASH_CONFIG_FILE"));
    EXPECT_TRUE(Has(child.output, "would be installed"));
    EXPECT_FALSE(Has(child.output, "zbase-crash-sender")) << child.output;
    EXPECT_FALSE(fs::exists(mFolder / "dumps"));
}

TEST_F(CrashCommand, CheckNamesWhatStopsTheInstallation) {
    std::ofstream(mFolder / "crash_report.ini") << "[Config]\nServerURL=x\n";
    EXPECT_TRUE(Has(Crash({"check"}).output, "ServerProdURL is missing"));
    std::ofstream(mFolder / "file") << "x";
    std::ofstream(mFolder / "crash_report.ini")
        << "[Config]\nServerURL=http://a/\nServerProdURL=http://a/\ndump_path=" << (mFolder / "file").string()
        << "\n";
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_TRUE(Has(child.output, "file is no directory.")) << child.output;
}

TEST_F(CrashCommand, MissingConfigurationIsAComplaint) {
    for (const char* command : {"check", "test", "send"}) {
        const ChildResult child = Crash({command});
        EXPECT_EQ(child.exitCode, 1);
        EXPECT_TRUE(Has(child.errors, "No such file or directory")) << child.errors;
    }
}

TEST_F(CrashCommand, ShowTellsReasonStackKeysAndModules) {
    Configure(kNobody);
    Probe("null");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_TRUE(child.output.starts_with("EXCEPTION_ACCESS_VIOLATION_WRITE at 0x0, thread ")) << child.output;
    EXPECT_TRUE(Has(child.output, "\n  0\tWindowsCrashProbe.exe\t")) << child.output;
    EXPECT_TRUE(Has(child.output, "WriteToNull")) << child.output;
    EXPECT_TRUE(Has(child.output, "\tmain")) << child.output;
    EXPECT_TRUE(Has(child.output, "Crash keys\n  kind=null\n  product=probe\nNotes\n  a note\nModules\n"))
        << child.output;
    EXPECT_TRUE(Has(child.output, "libZBase.dll\n")) << child.output;
}

TEST_F(CrashCommand, ShowOfWhatIsNoDumpFails) {
    std::ofstream(mFolder / "x.dmp") << "nothing";
    EXPECT_EQ(Crash({"show", (mFolder / "x.dmp").string()}).exitCode, 1);
    EXPECT_EQ(Crash({"show", (mFolder / "missing").string()}).exitCode, 1);
}

TEST_F(CrashCommand, TestTellsThatTheReportDoesNotArrive) {
    Configure(kNobody);
    const ChildResult child = Crash({"test"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_TRUE(Has(child.output, "did not arrive at http://127.0.0.1:1/")) << child.errors;
}

TEST_F(CrashCommand, TestsWithAReceiverOfItsOwn) {
    const ChildResult child = Crash({"test", "--local"});
    EXPECT_EQ(child.exitCode, 0) << child.errors << child.output;
    EXPECT_TRUE(Has(child.output, "A dump was written, and its report arrived at http://127.0.0.1:"));
    EXPECT_TRUE(Has(child.output, "product=zbase"));
    EXPECT_TRUE(Has(child.output, "zbase_crash_test=1"));
}

TEST_F(CrashCommand, SendSendsWhatWasLeftBehindWithItsKeysAndDeletesIt) {
    Configure(kNobody, "send_left=false\n");
    Probe("null");
    const ChildResult failed = Crash({"send"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_TRUE(Has(failed.output, "not sent, stays")) << failed.output;
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, (mFolder / "received").string()});
    Configure(server.ReadLine());
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 0) << sent.output;
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
    std::ifstream file(mFolder / "received" / "1.keys");
    std::string keys;
    for (std::string line; std::getline(file, line);) keys += line + ";";
    EXPECT_EQ(keys, "kind=null;product=probe;");
}

TEST_F(CrashCommand, ReceiverRefusesWhatItCanNotServe) {
    const ChildResult missing = test::RunChild({ZBASE_CRASH_RECEIVER, (mFolder / "missing").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_TRUE(Has(missing.errors, "is no directory that can be written to")) << missing.errors;
    const ChildResult port = test::RunChild({ZBASE_CRASH_RECEIVER, (mFolder / "received").string(), "65536"});
    EXPECT_EQ(port.exitCode, 2);
    EXPECT_TRUE(Has(port.errors, "65536 is no port")) << port.errors;
}

}  // namespace
