#include <csignal>

#include "tests/crash/CrashBench.h"

// Crashes where ptrace is not permitted, or /proc is not there or is that of another namespace of processes.

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

TEST_F(CrashConfined, WithoutProcHasTheCrashedThread) {
    const ChildResult child = Confined("no-proc");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "main"});
}

TEST_F(CrashConfined, OnAnotherThreadWithoutProcHasThatThread) {
    const ChildResult child = Confined("no-proc-thread");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "WorkOnAnotherThread"});
}

TEST_F(CrashConfined, ByStackOverflowWithoutProcHasTheWholeStack) {
    const ChildResult child = Confined("no-proc-overflow");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_GT(test::ReadDumpFile(ReceivedDumps().at(0)).stack.size(), 100u);
}

TEST_F(CrashConfined, DumpOnDemandWithoutProcHasItsCaller) {
    const ChildResult child = Confined("no-proc-dump");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.output, "1\n");
    ExpectStack({"CreateDump", "main"});
}

TEST_F(CrashConfined, OnAFibersStackWithoutProcHasThatStack) {
    const ChildResult child = Confined("no-proc-fiber");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "RunOnOwnStack"});
}

TEST_F(CrashConfined, ByOverflowOfAFibersStackWithoutProcHasThatStack) {
    const ChildResult child = Confined("no-proc-fiber-overflow");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_GT(test::ReadDumpFile(ReceivedDumps().at(0)).stack.size(), 100u);
}

TEST_F(CrashConfined, ByOverflowOfALargeStackWithoutProcHasItsInnermostFrames) {
    const ChildResult child = Confined("no-proc-large-overflow");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_GT(test::ReadDumpFile(ReceivedDumps().at(0)).stack.size(), 100u);
}

TEST_F(CrashConfined, OfAProgramWithARelativeNameWithoutProcHasItsFunctions) {
    const ChildResult child = Confined("no-proc-elsewhere");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    ExpectStack({"WriteToNull", "main"});
}

TEST_F(CrashConfined, BesideANamespaceForItsChildrenHasTheCrashedThread) {
    const ChildResult child = Crash({"before-first"}, {}, "ConfinedProbe");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.signal, SIGSEGV);
    // Behind the process that wrote the dump, the first one there, the system makes no others.
    ASSERT_EQ(LeftDumps().size(), 1u);
    const ReadDump dump = test::ReadDumpFile(LeftDumps().at(0));
    EXPECT_TRUE(dump.Has("WriteToNull"));
    EXPECT_TRUE(dump.Has("main"));
}

TEST_F(CrashConfined, FirstProcessWhoseFaultDoesNotRecurEndsAllTheSame) {
    const ChildResult child = Confined("first-once");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.output, "signal 11\n");
}

TEST_F(CrashConfined, UnderAnothersProcHasTheCrashedThread) {
    const ChildResult child = Confined("first");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.output, "signal 11\n");
    ExpectStack({"WriteToNull", "main"});
}

TEST_F(CrashConfined, FirstProcessThatAbortsEnds) {
    const ChildResult child = Confined("first-abort");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.output, "exit 134\n");
    ExpectStack({"abort", "main"});
}

TEST_F(CrashConfined, FirstProcessThatIsSentAnAbortEnds) {
    const ChildResult child = Confined("first-sent-abort");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no namespace here";
    EXPECT_EQ(child.output, "exit 134\n");
    ExpectStack({"main"});
}

}  // namespace
