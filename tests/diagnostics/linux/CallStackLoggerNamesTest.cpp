#include <Base/diagnostics/CallStackLogger.h>
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/Stacks.h"
#include "tests/support/TemporaryFile.h"

// What names and files the addresses of a record have.

using test::TemporaryFile;
using ZBase::CallStackLogger;
using ZBase::CallStackRec;

// Outside of any namespace, so that its symbol is short.
[[gnu::noinline]] void AppendOne(CallStackLogger& logger, unsigned int category, unsigned long skip) {
    logger.AppendCallStack(category, skip);
    test::StayHere();
}

namespace {

TEST(CallStackLoggerNames, BeginInAppendCallStack) {
    CallStackLogger logger;
    logger.AppendCallStack(7, 0);
    logger.AppendCallStack(0);
    for (const CallStackRec* record : logger) {
        Dl_info place{};
        ASSERT_NE(dladdr(reinterpret_cast<void*>(record->addresses[0]), &place), 0);
        EXPECT_TRUE(std::string(place.dli_sname).starts_with("_ZN5ZBase15CallStackLogger15AppendCallStackE"));
        Dl_info next{};
        ASSERT_NE(dladdr(reinterpret_cast<void*>(record->addresses[1]), &next), 0);
        EXPECT_TRUE(std::string(next.dli_fname).ends_with("diagnostics_tests"));
    }
}

TEST(CallStackLoggerNames, AreOneOfFiveColumnsForEachAddress) {
    CallStackLogger logger;
    AppendOne(logger, 0xFFFFFFFF, 1);
    const TemporaryFile file;
    testing::internal::CaptureStdout();
    logger.FprintfCallStack(file.Path());
    testing::internal::GetCapturedStdout();
    const std::string report = file.Text();
    EXPECT_TRUE(report.starts_with("<start>\nLock Category = -1\nCount = 1\n0x")) << report;
    EXPECT_TRUE(report.ends_with("\n<end>\n\n"));
    EXPECT_NE(
        report.find("diagnostics_tests # AppendOne(ZBase::CallStackLogger&, unsigned int, unsigned long) # "),
        std::string::npos);
    EXPECT_NE(report.find("tests/diagnostics/linux/CallStackLoggerNamesTest.cpp # "), std::string::npos)
        << report;
}

}  // namespace
