#include <csignal>
#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

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
};

/// A crash whose report arrives.
struct Confinement {
    const char* name;
    const char* kind;                    // of ConfinedProbe
    std::vector<std::string> functions;  // of the crashed thread, which the dump names
    std::size_t leastFrames = 1;
    int signal = SIGSEGV;     // that the probe ends by
    const char* output = "";  // and what it prints of one that it has made
};

std::ostream& operator<<(std::ostream& stream, const Confinement& row) {
    return stream << row.kind;
}

class CrashConfinedReport : public CrashConfined, public testing::WithParamInterface<Confinement> {};

TEST_P(CrashConfinedReport, HasTheCrashedThread) {
    const Confinement& row = GetParam();
    const ChildResult child = Crash({row.kind}, {}, "ConfinedProbe");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "the system lets no process be confined like that";
    EXPECT_EQ(child.signal, row.signal);
    EXPECT_EQ(child.output, row.output);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    const ReadDump dump = test::ReadDumpFile(ReceivedDumps().at(0));
    EXPECT_GE(dump.stack.size(), row.leastFrames);
    for (const std::string& function : row.functions) EXPECT_TRUE(dump.Has(function)) << function;
    EXPECT_EQ(ReceivedKeys(1).at("product"), "probe");
}

constexpr std::size_t kOverflow = 100;  // frames at least

// A first process is that of a namespace; /proc stays that of the outer one.
const Confinement kConfinements[] = {
    {"WherePtraceIsForbidden", "no-ptrace", {"WriteToNull", "main"}},
    {"WherePtraceEndsTheCaller", "ptrace-kills", {"WriteToNull", "main"}},
    {"ByStackOverflow", "no-ptrace-overflow", {"Overflow"}, kOverflow},
    {"OnDemand", "no-ptrace-dump", {"CreateDump"}, 1, 0, "1\n"},
    {"WhileSomebodyElseTraces", "traced", {"WriteToNull", "CrashTraced", "main"}, 1, 0, "11\n"},
    {"WithoutProc", "no-proc", {"WriteToNull", "main"}},
    {"OnAnotherThreadWithoutProc", "no-proc-thread", {"WriteToNull", "WorkOnAnotherThread"}},
    {"ByStackOverflowWithoutProc", "no-proc-overflow", {"Overflow"}, kOverflow},
    {"OnDemandWithoutProc", "no-proc-dump", {"CreateDump", "main"}, 1, 0, "1\n"},
    {"OnAFibersStackWithoutProc", "no-proc-fiber", {"WriteToNull", "RunOnOwnStack"}},
    {"ByOverflowOfAFibersStackWithoutProc", "no-proc-fiber-overflow", {"Overflow"}, kOverflow},
    {"ByOverflowOfALargeStackWithoutProc", "no-proc-large-overflow", {"Overflow"}, kOverflow},
    {"OfAProgramWithARelativeNameWithoutProc", "no-proc-elsewhere", {"WriteToNull", "main"}},
    {"OfAFirstProcess", "first", {"WriteToNull", "main"}, 1, 0, "signal 11\n"},
    {"OfAFirstProcessByAFaultThatDoesNotRecur", "first-once", {"main"}, 1, 0, "signal 11\n"},
    {"OfAFirstProcessThatAborts", "first-abort", {"abort", "main"}, 1, 0, "exit 134\n"},
    {"OfAFirstProcessThatIsSentAnAbort", "first-sent-abort", {"main"}, 1, 0, "exit 134\n"},
};

INSTANTIATE_TEST_SUITE_P(Crashes, CrashConfinedReport, testing::ValuesIn(kConfinements),
                         [](const auto& row) { return row.param.name; });

TEST_F(CrashConfined, WithoutRandomNumbersEachDumpHasANameAllTheSame) {
    const ChildResult child = Crash({"no-random"}, {}, "ConfinedProbe");
    if (child.exitCode == kNotHere) GTEST_SKIP() << "no seccomp here";
    EXPECT_EQ(child.output, "1\n1\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_EQ(LeftDumps().size(), 3u);  // libcurl sends no form without random numbers
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

}  // namespace
