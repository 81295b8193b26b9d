#include <csignal>
#include <fstream>
#include <regex>

#include "tests/crash/CrashBench.h"

// Real crashes of other processes: each leaves a dump that Breakpad's reader understands, which arrives at a
// report server exactly once and is gone afterwards.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;
using test::CrashKeys;
using test::ReadDump;
using test::ReadDumpFile;

struct CrashCase {
    const char* kind;  // what CrashProbe is told
    int signal;
    const char* reason;    // how the reader's begins
    const char* function;  // one on the stack of the crashed thread
    bool isInnermost;
};

class Crash : public test::CrashBench, public testing::WithParamInterface<CrashCase> {};

TEST_P(Crash, IsDumpedAndReportedOnce) {
    const CrashCase& expected = GetParam();
    StartServer();
    Configure("", "product=probe\nempty=\n");
    const ChildResult child = CrashBench::Crash({expected.kind, "run", "7"});
    EXPECT_EQ(child.signal, expected.signal);
    EXPECT_TRUE(LeftDumps().empty());
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"product", "probe"}, {"empty", ""}, {"run", "7"}}));

    const ReadDump dump = ReadDumpFile(ReceivedDumps()[0]);
    EXPECT_EQ(dump.reason.rfind(expected.reason, 0), 0u) << dump.reason;
    ASSERT_FALSE(dump.stack.empty());
    EXPECT_TRUE(dump.Has(expected.function));
    const std::string& shown = expected.isInnermost ? dump.stack[0] : dump.stack.back();
    EXPECT_TRUE(!expected.isInnermost || shown.find(expected.function) != std::string::npos) << shown;
}

std::string NameOf(const testing::TestParamInfo<CrashCase>& row) {
    std::string name = row.param.kind;
    std::erase(name, '-');
    return name;
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Crash,
    testing::Values(CrashCase{"null", SIGSEGV, "SIGSEGV /SEGV_MAPERR", "WriteToNull", true},
                    CrashCase{"divide", SIGFPE, "SIGFPE / FPE_INTDIV", "DivideByZero", true},
                    CrashCase{"illegal", SIGILL, "SIGILL", "RunIllegalInstruction", true},
                    CrashCase{"jump", SIGSEGV, "SIGSEGV", "JumpNowhere", false},
                    CrashCase{"abort", SIGABRT, "SIGABRT", "Abort", false},
                    CrashCase{"throw", SIGABRT, "SIGABRT", "ThrowUncaught", false},
                    CrashCase{"pure", SIGABRT, "SIGABRT", "CallPureVirtual", false},
                    CrashCase{"overflow", SIGSEGV, "SIGSEGV", "Overflow", true},
                    CrashCase{"thread-overflow", SIGSEGV, "SIGSEGV", "Overflow", true},
                    CrashCase{"thread", SIGSEGV, "SIGSEGV", "WriteToNull", true},
                    CrashCase{"threads", SIGSEGV, "SIGSEGV", "CrashOnManyThreads", true},
                    CrashCase{"exit", SIGSEGV, "SIGSEGV", "WriteToNull", true},
                    CrashCase{"while-exiting", SIGSEGV, "SIGSEGV", "WriteToNull", true},
                    CrashCase{"malloc", SIGSEGV, "SIGSEGV", "CrashInMalloc", false},
                    CrashCase{"heap-held", SIGSEGV, "SIGSEGV", "CrashWhileAnotherHoldsTheHeap", false},
                    CrashCase{"no-memory", SIGSEGV, "SIGSEGV", "CrashWithoutMemory", false},
                    CrashCase{"no-descriptors", SIGSEGV, "SIGSEGV", "WriteToNull", true},
                    CrashCase{"signal", SIGSEGV, "SIGSEGV", "BeSignalled", false}),
    NameOf);

using CrashReports = test::CrashBench;

TEST_F(CrashReports, StackOverflowShowsTheStack) {
    StartServer();
    Configure();
    for (const char* kind : {"overflow", "thread-overflow"}) Crash({kind});
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    for (const fs::path& dump : ReceivedDumps()) EXPECT_GT(ReadDumpFile(dump).stack.size(), 40u);
}

TEST_F(CrashReports, SecondThreadIsTheCrashedOne) {
    StartServer();
    Configure();
    Crash({"thread"});
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReadDumpFile(ReceivedDumps()[0]).crashedThread, 1);
}

TEST_F(CrashReports, ThreadWithoutItsOwnCrashStackEndsByItsOverflowUnreported) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"bare-thread-overflow"}).signal, SIGSEGV);
    EXPECT_TRUE(ReceivedDumps().empty());
}

TEST_F(CrashReports, ForkedChildAndParentAreReportedBoth) {
    StartServer();
    Configure();
    const ChildResult child = Crash({"fork"});
    EXPECT_EQ(child.output, "child ended by signal 11\n");
    EXPECT_EQ(child.signal, SIGFPE);
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[0]).Has("WriteToNull"));
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[1]).Has("DivideByZero"));
}

TEST_F(CrashReports, TranslatorComesBeforeTheHandlerInEitherOrder) {
    StartServer();
    Configure();
    for (const char* kind : {"translator-first", "translator-last"}) {
        const ChildResult child = Crash({kind});
        EXPECT_EQ(child.errors, "caught 200\n");
        EXPECT_EQ(child.signal, SIGSEGV);
    }
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    for (const fs::path& dump : ReceivedDumps()) EXPECT_TRUE(ReadDumpFile(dump).Has("WriteToNull"));
}

TEST_F(CrashReports, StackOverflowIsACrashInSpiteOfATranslator) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"translated-overflow"}).signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[0]).Has("Overflow"));
}

TEST_F(CrashReports, HostThatIgnoresItsChildrenIsReported) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"null"}, {"PROBE_IGNORE_CHILDREN=1"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashReports, DumpOnDemandIsOneOfAHangingProcessAndTheCrashAfterItIsNot) {
    StartServer();
    Configure("", "product=probe\n");
    const ChildResult child = Crash({"dump-first"});
    EXPECT_EQ(child.output, "1\n1\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 3u);
    for (const int report : {1, 2}) {
        EXPECT_EQ(ReceivedKeys(report), (CrashKeys{{"product", "probe"}, {"reason", "hanging"}}));
    }
    EXPECT_EQ(ReceivedKeys(3), (CrashKeys{{"product", "probe"}}));
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[0]).Has("CrashAfterDump"));
}

TEST_F(CrashReports, CrashKeyNamedReasonWinsOverHanging) {
    StartServer();
    Configure();
    Crash({"dump", "reason", "mine"});
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"reason", "mine"}}));
}

TEST_F(CrashReports, DumpsOnDemandFromManyThreadsAreWholeAndTheProcessGoesOn) {
    StartServer();
    Configure();
    const ChildResult child = Crash({"dumps"});
    EXPECT_EQ(child.exitCode, 0);
    const int written = std::stoi(child.output);
    EXPECT_GE(written, 1);
    EXPECT_EQ(child.output.substr(child.output.find('\n')), "\n1\n");
    ASSERT_EQ(ReceivedDumps().size(), static_cast<std::size_t>(written) + 1);
    for (const fs::path& dump : ReceivedDumps()) EXPECT_TRUE(ReadDumpFile(dump).Has("CreateDump"));
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashReports, DumpStaysWhenTheFileSaysSo) {
    StartServer();
    Configure("keep_dump_file=true\n");
    Crash({"null"});
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    ASSERT_EQ(LeftDumps().size(), 1u);
    const std::regex name("[0-9a-f]{8}-[0-9a-f]{4}-4[0-9a-f]{3}-[89ab][0-9a-f]{3}-[0-9a-f]{12}");
    EXPECT_TRUE(std::regex_match(LeftDumps()[0].stem().string(), name)) << LeftDumps()[0];
}

TEST_F(CrashReports, OnlyTheOwnerReadsDumps) {
    StartServer();
    Configure("keep_dump_file=true\n");
    Crash({"null"});
    ASSERT_EQ(LeftDumps().size(), 1u);
    EXPECT_EQ(fs::status(mDumps).permissions(), fs::perms::owner_all);
    EXPECT_EQ(fs::status(LeftDumps()[0]).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(CrashReports, CustomerDsiChoosesTheOtherServer) {
    StartServer();
    const auto configure = [this](const std::string& keys) {
        WriteConfig("[Config]\nServerURL=" + mServer + "\nServerProdURL=http://127.0.0.1:1/\ndump_path=" +
                    mDumps.string() + "\n[CrashKeys]\n" + keys);
    };
    configure("customer_dsi=1\n");  // only a call can choose, the file can't
    Crash({"null"});
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    configure("");
    for (const char* value : {"0", "abc", ""}) Crash({"null", "customer_dsi", value});
    EXPECT_EQ(ReceivedDumps().size(), 4u);
    Crash({"null", "customer_dsi", "1"});
    EXPECT_EQ(ReceivedDumps().size(), 4u);
    EXPECT_EQ(LeftDumps().size(), 1u);
}

TEST_F(CrashReports, FileWinsOverAKeyThatWasSetBefore) {
    StartServer();
    Configure("", "a=file\n");
    Crash({"null", "a", "early", "b", "early"});
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"a", "file"}, {"b", "early"}}));
}

TEST_F(CrashReports, OctetsBeyondAsciiBecomeQuestionMarks) {
    StartServer();
    Configure("", "file=\u00E9\n");
    Crash({"null", "call", "\u00E9"});
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"file", "\u00E9"}, {"call", "??"}}));
}

TEST_F(CrashReports, AMegabyteOfKeysArrives) {
    StartServer();
    std::string keys;
    for (int i = 0; i != 1000; ++i) keys += "key" + std::to_string(i) + "=" + std::string(1000, 'v') + "\n";
    Configure("", keys);
    Crash({"null"});
    EXPECT_EQ(ReceivedKeys(1).size(), 1000u);
}

TEST_F(CrashReports, CoreOfTheSystemFollowsOnlyWhenTheFileSaysSo) {
    StartServer();
    const std::vector<std::string> cores = {"PROBE_CORE_FOLDER=" + mFolder.string()};
    Configure("native_dump=true\n");
    const ChildResult native = Crash({"null"}, cores);
    EXPECT_EQ(native.signal, SIGSEGV);
    EXPECT_EQ(native.leftCore, Crash({"unhandled"}, cores).leftCore);  // if the system makes any
    Configure("native_dump=false\n");
    const ChildResult handled = Crash({"null"}, cores);
    EXPECT_EQ(handled.signal, SIGSEGV);
    EXPECT_FALSE(handled.leftCore);
    EXPECT_EQ(ReceivedDumps().size(), 2u);
}

TEST_F(CrashReports, DumpPathThatIsNoDirectoryLeavesTheCrashToTheSystem) {
    StartServer();
    WriteConfig("[Config]\nServerURL=" + mServer + "\nServerProdURL=\ndump_path=/dev/null\n");
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    EXPECT_EQ(Crash({"dump"}).output, "0\n");
    EXPECT_TRUE(ReceivedDumps().empty());
}

}  // namespace
