#include <csignal>

#include "tests/crash/CrashBench.h"

// Crashes where ptrace is not permitted.

namespace {

using test::ChildResult;
using test::ReadDump;

constexpr int kNotHere = 77;  // the system doesn't let a process be confined like that

class CrashConfined : public test::CrashBench {
protected:
    void SetUp() override {
        StartServer();
        Configure("", "product=probe\n");
    }
    ChildResult Confined(const std::string& kind) {
        ChildResult child = Crash({kind}, {}, "ConfinedProbe");
        EXPECT_EQ(ReceivedDumps().size(), child.exitCode == kNotHere ? 0u : 1u);
        return child;
    }
    void ExpectStack(const std::vector<std::string>& functions) {
        const ReadDump dump = test::ReadDumpFile(ReceivedDumps().at(0));
        for (const std::string& function : functions) EXPECT_TRUE(dump.Has(function)) << function;
        EXPECT_EQ(ReceivedKeys(1).at("product"), "probe");
    }
};

TEST_F(CrashConfined, WherePtraceIsForbiddenHasTheCrashedThread) {
    const ChildResult child = Confined("no-ptrace");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "main"});
}

TEST_F(CrashConfined, WherePtraceEndsTheCallerHasTheCrashedThread) {
    const ChildResult child = Confined("ptrace-kills");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "main"});
}

TEST_F(CrashConfined, ByStackOverflowHasTheWholeStack) {
    const ChildResult child = Confined("no-ptrace-overflow");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"Overflow"});
}

TEST_F(CrashConfined, DumpOnDemandHasItsCaller) {
    const ChildResult child = Confined("no-ptrace-dump");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.output, "1\n");
    ExpectStack({"CreateDump"});
}

TEST_F(CrashConfined, WithoutRandomNumbersEachDumpHasANameAllTheSame) {
    const ChildResult child = Crash({"no-random"}, {}, "ConfinedProbe");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.output, "1\n1\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_EQ(LeftDumps().size(), 3u);  // libcurl sends no form without random numbers
}

TEST_F(CrashConfined, WhileSomebodyElseTracesHasTheCrashedThread) {
    const ChildResult child = Confined("traced");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no tracing here";
    EXPECT_EQ(child.output, "11\n");
    ExpectStack({"WriteToNull", "CrashTraced", "main"});
}

}  // namespace
