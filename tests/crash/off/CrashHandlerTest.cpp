#include <Base/ZBase.h>
#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/support/ScratchFolder.h"

// A library built without crash reporting.

namespace {

using CrashHandlerThatIsOff = test::ScratchFolder;

TEST_F(CrashHandlerThatIsOff, ACompleteConfigurationInstallsNothing) {
    const std::string file = mFolder / "crash_report.ini";
    const std::string dumps = mFolder / "dumps";
    std::ofstream(file)
        << "[Config]\nenable=true\nServerURL=http://127.0.0.1:9\nServerProdURL=http://127.0.0.1:9\n"
        << "dump_path=" << dumps << "\n[CrashKeys]\nproduct=server\n";
    ASSERT_EQ(setenv("ZENT_CRASH_CONFIG_FILE", file.c_str(), 1), 0);
    EXPECT_FALSE(ZBase::InstallCrashHandler());
    EXPECT_FALSE(ZBase::CreateDump());
    EXPECT_FALSE(ZBase::InstallCrashStack());
    EXPECT_FALSE(std::filesystem::exists(dumps));
    // The configuration is in force.
    EXPECT_FALSE(ZBase::SetCrashAttr("product", "other", false));
    EXPECT_TRUE(ZBase::SetCrashAttr("product", "other", true));
    EXPECT_TRUE(ZBase::SetCrashAttr("version", "1", false));
    unsetenv("ZENT_CRASH_CONFIG_FILE");
}

TEST_F(CrashHandlerThatIsOff, StacksOfAllThreadsAreWrittenAtTheSignal) {
    const std::string file = mFolder / "crash_report.ini";
    const std::filesystem::path dumps = mFolder / "dumps";
    std::ofstream(file) << "[Config]\nServerURL=http://127.0.0.1:9\nServerProdURL=http://127.0.0.1:9\n"
                        << "stacks_on=SIGUSR2\ndump_path=" << dumps.string() << "\n";
    ASSERT_EQ(setenv("ZENT_CRASH_CONFIG_FILE", file.c_str(), 1), 0);
    EXPECT_FALSE(ZBase::InstallCrashHandler());
    raise(SIGUSR2);
    std::string text;
    for (int i = 0; i != 6000 && text.find("\nModules\n") == std::string::npos; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
        for (const auto& entry : std::filesystem::directory_iterator(dumps)) {
            std::ifstream stacks(entry.path());
            text.assign(std::istreambuf_iterator<char>(stacks), {});
        }
    }
    EXPECT_EQ(text.rfind("Stacks of process " + std::to_string(getpid()), 0), 0u) << text;
    EXPECT_NE(text.find("\"zbase-stacks\""), std::string::npos) << text;
    unsetenv("ZENT_CRASH_CONFIG_FILE");
}

TEST_F(CrashHandlerThatIsOff, ReportsReachNoServer) {
    using namespace ZBase::Literals;
    ZBase::WideString code;
    EXPECT_EQ(
        ZBase::CrashReportSender(ZBase::WideString()).SendCrashReport("http://127.0.0.1:9"_w, {}, {}, &code),
        ZBase::RESULT_FAILED);
}

}  // namespace
