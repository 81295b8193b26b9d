#include <csignal>
#include <fstream>
#include <regex>

#include "tests/crash/CrashBench.h"

// Real crashes of other processes: each leaves a dump that Breakpad's reader can read, which arrives at a
// report server exactly once and is deleted afterwards.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;
using test::CrashKeys;
using test::ReadDump;
using test::ReadDumpFile;

struct CrashCase {
    const char* kind;  // argument of CrashProbe
    int signal;
    const char* reason;    // how the reader's begins
    const char* function;  // one on the stack of the crashed thread
    bool isInnermost;
    CrashKeys lastWords = {};
};

class CrashReport : public test::CrashBench, public testing::WithParamInterface<CrashCase> {};

TEST_P(CrashReport, IsDumpedAndReportedOnce) {
    const CrashCase& expected = GetParam();
    StartServer();
    Configure("", "product=probe\nempty=\n");
    const ChildResult child = CrashBench::Crash({expected.kind, "run", "7"});
    EXPECT_EQ(child.signal, expected.signal);
    EXPECT_TRUE(LeftDumps().empty());
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    CrashKeys keys = {{"product", "probe"}, {"empty", ""}, {"run", "7"}};
    keys.insert(expected.lastWords.begin(), expected.lastWords.end());
    EXPECT_EQ(ReceivedKeys(1), keys);

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
    Kinds, CrashReport,
    testing::Values(CrashCase{"null", SIGSEGV, "SIGSEGV /SEGV_MAPERR", "WriteToNull", true},
                    CrashCase{"divide", SIGFPE, "SIGFPE / FPE_INTDIV", "DivideByZero", true},
                    CrashCase{"illegal", SIGILL, "SIGILL", "RunIllegalInstruction", true},
                    CrashCase{"breakpoint", SIGTRAP, "SIGTRAP", "HitBreakpoint", true},
                    CrashCase{"jump", SIGSEGV, "SIGSEGV", "JumpNowhere", false},
                    CrashCase{"abort", SIGABRT, "SIGABRT", "Abort", false},
                    CrashCase{
                        "throw", SIGABRT, "SIGABRT", "ThrowUncaught", false, {{"exception_type", "int"}}},
                    CrashCase{"pure",
                              SIGABRT,
                              "SIGABRT",
                              "CallPureVirtual",
                              false,
                              {{"pure_call", "pure virtual method called"}}},
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

TEST_F(CrashReports, StackOverflowShowsTheWholeStack) {
    StartServer();
    Configure();
    for (const char* kind : {"overflow", "thread-overflow"}) Crash({kind});
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    const ReadDump ofProcess = ReadDumpFile(ReceivedDumps()[0]);
    const ReadDump ofThread = ReadDumpFile(ReceivedDumps()[1]);
    for (const ReadDump& dump : {ofProcess, ofThread}) {
        EXPECT_GT(dump.stack.size(), 400u);  // a megabyte in frames of two kibibytes and a little
        EXPECT_TRUE(dump.Has("ExhaustStack"));
    }
    EXPECT_TRUE(ofProcess.Has("main"));
    EXPECT_TRUE(ofThread.Has("RunThread"));
}

TEST_F(CrashReports, StackOverflowByFramesLargerThanTheGuardShowsTheWholeStack) {
    StartServer();
    Configure();
    for (const char* kind : {"large-overflow", "large-thread-overflow"}) Crash({kind});
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    for (const fs::path& path : ReceivedDumps()) {
        const ReadDump dump = ReadDumpFile(path);
        EXPECT_GT(dump.stack.size(), 50u);  // a megabyte in frames of 16 kibibytes and a little
        EXPECT_TRUE(dump.Has("ExhaustStackByLargeFrames"));
    }
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
    Configure("", "product=probe\n");
    const ChildResult child = Crash({"fork", "run", "7"});
    EXPECT_EQ(child.output, "child ended by signal 11\n");
    EXPECT_EQ(child.signal, SIGFPE);
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"product", "probe"}, {"run", "7"}, {"who", "child"}}));
    EXPECT_EQ(ReceivedKeys(2), (CrashKeys{{"product", "probe"}, {"run", "7"}}));
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[0]).Has("WriteToNull"));
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[1]).Has("DivideByZero"));
}

TEST_F(CrashReports, StackOverflowIsACrashInSpiteOfATranslator) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"translated-overflow"}).signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_TRUE(ReadDumpFile(ReceivedDumps()[0]).Has("Overflow"));
}

class CrashReportStackUse : public test::CrashBench, public testing::WithParamInterface<const char*> {};

TEST_P(CrashReportStackUse, IsLessThanHalfOfTheStack) {
    StartServer();
    Configure();
    const ChildResult child = Crash({GetParam()});
    const int used =
        std::atoi(child.output.substr(child.output.rfind('\n', child.output.size() - 2) + 1).c_str());
    RecordProperty("octets", used);
    EXPECT_EQ(ReceivedDumps().size(), GetParam() == std::string("stack-of-fault") ? 0u : 1u);
    EXPECT_GT(used, 1000) << child.output;
    EXPECT_LT(used, 65536 / 2);
}

INSTANTIATE_TEST_SUITE_P(Kinds, CrashReportStackUse,
                         testing::Values("stack-of-null", "stack-of-overflow", "stack-of-malloc",
                                         "stack-of-abort", "stack-of-fault"),
                         [](const auto& row) { return std::string(row.param).substr(9); });

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

TEST_F(CrashReports, DumpThatFailsLeavesNoEmptyFileAndIsNotSent) {
    StartServer();
    Configure();
    const ChildResult child = Crash({"failed-dump"});
    EXPECT_EQ(child.output, "0 1\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_TRUE(LeftDumps().empty());  // an empty file has no use
}

TEST_F(CrashReports, DumpsOnDemandLeaveNoDescriptorOpen) {
    StartServer();
    Configure();
    const ChildResult child = Crash({"descriptors"});
    int before = 0;
    int after = -1;
    EXPECT_EQ(std::sscanf(child.output.c_str(), "%d %d", &before, &after), 2);
    EXPECT_EQ(before, after);
    EXPECT_EQ(ReceivedDumps().size(), 6u);
}

TEST_F(CrashReports, DumpsThatNoProcessCanWriteLeaveNoDescriptorOpenEither) {
    StartServer();
    Configure();
    fs::permissions(mFolder, fs::perms::all);
    const ChildResult child = Crash({"no-processes"}, {"PROBE_USER=" + test::OrdinaryUser()});
    int before = 0;
    int after = -1;
    EXPECT_EQ(std::sscanf(child.output.c_str(), "%d %d", &before, &after), 2);
    EXPECT_EQ(before, after);
    EXPECT_EQ(child.signal, SIGSEGV);
    EXPECT_TRUE(LeftDumps().empty());
    EXPECT_TRUE(ReceivedDumps().empty());
}

TEST_F(CrashReports, CrashThatIsNotDumpedGoesOnToTheHost) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"failed-dump"}, {"PROBE_HOST_HANDLER=1"}).exitCode, 93);
}

TEST_F(CrashReports, DumpsGoToTheUsualDirectoryOfWhereTheHandlerWasInstalled) {
    StartServer();
    WriteConfig("[Config]\nServerURL=" + mServer + "\nServerProdURL=\nkeep_dump_file=true\n");
    EXPECT_EQ(Crash({"moved"}, {"PROBE_FOLDER=" + mFolder.string()}).signal, SIGSEGV);
    EXPECT_EQ(std::distance(fs::directory_iterator(mFolder / "crash_dumps"), fs::directory_iterator()), 1);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashReports, KeysOfTheInstalledHandlerMayBeSetLate) {
    StartServer();
    Configure("", "of file=1\n");
    EXPECT_EQ(Crash({"late-keys"}).output, "10110");
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"of file", "1"}, {"kept", "1"}, {"replaced", "2"}}));
}

TEST_F(CrashReports, CustomerDsiChoosesTheOtherServer) {
    StartServer();
    const auto configure = [this](const std::string& keys) {
        WriteConfig("[Config]\nServerURL=" + mServer + "\nServerProdURL=http://127.0.0.1:1/\ndump_path=" +
                    mDumps.string() + "\n[CrashKeys]\n" + keys);
    };
    configure("customer_dsi=1\n");  // only a call can choose the server, the file can't
    Crash({"null"});
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    configure("");
    for (const char* value : {"0", "abc", ""}) Crash({"null", "customer_dsi", value});
    EXPECT_EQ(ReceivedDumps().size(), 4u);
    Crash({"null", "customer_dsi", "1"});
    Crash({"null", "customer_dsi", "-1", "customer_dsi", "0"});  // it can't be undone
    EXPECT_EQ(ReceivedDumps().size(), 4u);
    EXPECT_EQ(LeftDumps().size(), 2u);
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

TEST_F(CrashReports, KeysThatAFormCantHoldSilenceNoReport) {
    StartServer();
    Configure("", "k\u00E9y=file\n=empty\n");
    Crash({"null", "a\"b", "1", "a\tb", "2", "plain", "3"});
    EXPECT_EQ(
        ReceivedKeys(1),
        (CrashKeys{{"k%C3%A9y", "file"}, {"%", "empty"}, {"a%22b", "1"}, {"a%09b", "2"}, {"plain", "3"}}));
}

TEST_F(CrashReports, AMegabyteOfKeysArrives) {
    StartServer();
    std::string keys;
    for (int i = 0; i != 1000; ++i) keys += "key" + std::to_string(i) + "=" + std::string(1000, 'v') + "\n";
    Configure("", keys);
    Crash({"null"});
    EXPECT_EQ(ReceivedKeys(1).size(), 1000u);
}

TEST_F(CrashReports, NativeDumpIsReportedAndTheCrashGoesOnToTheHost) {
    StartServer();
    Configure("native_dump=true\n", "product=probe\n");
    EXPECT_EQ(Crash({"null"}).signal, SIGSEGV);
    EXPECT_EQ(Crash({"null"}, {"PROBE_HOST_HANDLER=1"}).exitCode, 93);
    EXPECT_EQ(ReceivedDumps().size(), 2u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"product", "probe"}}));
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashReports, CrashDoesNotReachTheHostUnlessTheFileSaysSo) {
    StartServer();
    Configure("native_dump=false\n");
    EXPECT_EQ(Crash({"null"}, {"PROBE_HOST_HANDLER=1"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashReports, CoreOfTheSystemFollowsOnlyWhenTheFileSaysSo) {
    StartServer();
    const std::vector<std::string> cores = {"PROBE_CORES=1", "PROBE_FOLDER=" + mFolder.string()};
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

// The installation may be repeated: what is read is added to what was read before.

class CrashReportOfASecondInstallation : public test::CrashBench {
protected:
    void SetUp() override { StartServer(); }

    // Installs by the configuration and then by another, and crashes.
    ChildResult CrashAfter(const std::string& second, const std::string& kind = "null",
                           const std::vector<std::string>& environment = {}) const {
        std::ofstream(mFolder / "second.ini") << second;
        std::vector<std::string> variables = {"PROBE_SECOND_CONFIG=" + (mFolder / "second.ini").string()};
        variables.insert(variables.end(), environment.begin(), environment.end());
        return Crash({kind}, variables);
    }
    std::string Servers() const { return "[Config]\nServerURL=" + mServer + "\nServerProdURL=\n"; }
};

TEST_F(CrashReportOfASecondInstallation, ReplacesWhatItNamesAndKeepsTheRest) {
    WriteConfig("[Config]\nServerURL=http://127.0.0.1:1/\nServerProdURL=\ndump_path=" + mDumps.string() +
                "\n[CrashKeys]\na=1\nb=1\n");
    const ChildResult child = CrashAfter("[Config]\nServerURL=" + mServer + "\n[CrashKeys]\nb=2\nc=2\n");
    EXPECT_EQ(child.output, "1\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"a", "1"}, {"b", "2"}, {"c", "2"}}));
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashReportOfASecondInstallation, MovesTheDumps) {
    Configure("keep_dump_file=true\n");
    EXPECT_EQ(CrashAfter("[Config]\ndump_path=" + (mFolder / "others").string()).output, "1\n");
    EXPECT_TRUE(LeftDumps().empty());
    EXPECT_EQ(std::distance(fs::directory_iterator(mFolder / "others"), fs::directory_iterator()), 1);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashReportOfASecondInstallation, DumpsOnDemandOnce) {
    Configure("keep_dump_file=true\n");
    EXPECT_EQ(CrashAfter(Servers(), "dump").output, "1\n1\n");
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"reason", "hanging"}}));
}

TEST_F(CrashReportOfASecondInstallation, KeepsTheFlagsOfTheFirst) {
    Configure("native_dump=true\nkeep_dump_file=true\n");
    const ChildResult child =
        CrashAfter(Servers() + "native_dump=false\nkeep_dump_file=false\n", "null", {"PROBE_HOST_HANDLER=1"});
    EXPECT_EQ(child.output, "1\n");
    EXPECT_EQ(child.exitCode, 93);
    EXPECT_EQ(LeftDumps().size(), 1u);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashReportOfASecondInstallation, ThatFindsNoFileLeavesTheFirstAsItIs) {
    Configure("", "a=1\n");
    const ChildResult child = Crash({"null"}, {"PROBE_SECOND_CONFIG=/no/such/file"});
    EXPECT_EQ(child.output, "0\n");
    EXPECT_EQ(child.signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1), (CrashKeys{{"a", "1"}}));
}

TEST_F(CrashReportOfASecondInstallation, ThatFailsBehindTheFileChangesWhatTheFirstSends) {
    for (const char* obstacle : {"enable=false\n", "dump_path=/no/such/directory\n"}) {
        WriteConfig("[Config]\nServerURL=http://127.0.0.1:1/\nServerProdURL=\ndump_path=" + mDumps.string() +
                    "\n[CrashKeys]\na=1\nb=1\n");
        const ChildResult child = CrashAfter("[CrashKeys]\nb=2\n" + Servers() + obstacle);
        EXPECT_EQ(child.output, "0\n");
        EXPECT_EQ(child.signal, SIGSEGV);
    }
    ASSERT_EQ(ReceivedDumps().size(), 2u);
    for (const int report : {1, 2}) EXPECT_EQ(ReceivedKeys(report), (CrashKeys{{"a", "1"}, {"b", "2"}}));
    EXPECT_TRUE(LeftDumps().empty());
}

}  // namespace
