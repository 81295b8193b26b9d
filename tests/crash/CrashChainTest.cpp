#include <csignal>

#include "tests/crash/CrashBench.h"

// Hosts with a run-time of their own, which handles some faults.

namespace {

using test::ChildResult;
using test::ReadDump;

class CrashChain : public test::CrashBench {
protected:
    ChildResult Host(const std::string& kind, const std::string& settings = "chain=first\n") {
        StartServer();
        Configure(settings);
        return Crash({kind}, {}, "ConfinedProbe");
    }
};

TEST_F(CrashChain, FaultsOfTheHostAreItsOwn) {
    const ChildResult child = Host("host");
    EXPECT_EQ(child.exitCode, 0) << child.signal;
    EXPECT_EQ(child.output, "10000 5000\n");
    EXPECT_TRUE(ReceivedDumps().empty());
}

TEST_F(CrashChain, FaultThatTheHostGivesUpIsReported) {
    const ChildResult child = Host("host-crash");
    EXPECT_EQ(child.output, "10000 5000\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_TRUE(test::ReadDumpFile(ReceivedDumps()[0]).Has("WriteToNull"));
}

TEST_F(CrashChain, HandlerThatOnlyReturnsHoldsNoCrashBack) {
    EXPECT_EQ(Host("idle-host").signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashChain, AbortIsReportedAtOnce) {
    EXPECT_EQ(Host("host-abort").signal, SIGABRT);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashChain, WithoutItTheHostIsNotAsked) {
    for (const char* settings : {"", "chain=last\n", "chain=First\n"}) {
        EXPECT_EQ(Host("host", settings).signal, SIGSEGV);
        EXPECT_EQ(ReceivedDumps().size(), 1u);
        std::filesystem::remove(ReceivedDumps().at(0));
    }
}

}  // namespace
