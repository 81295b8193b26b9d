#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

#include "tests/crash/CrashBench.h"
#include "tests/crash/FixedServer.h"

// Two things go wrong at the same time: a process never hangs, and ends by the signal in its dump.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;
using test::CrashKeys;
using test::FixedServer;
using test::Manner;

/// The content of a dump, read without any other program.
struct DumpFacts {
    unsigned int signal = 0;
    bool hasCrashedThread = false;
    std::size_t threads = 0;
    bool hanging = false;
    CrashKeys keys;
};

DumpFacts FactsOf(const fs::path& dump) {
    std::ifstream file(dump, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    const auto word = [&](std::size_t at) {
        std::uint32_t value = 0;
        if (at + sizeof value <= content.size()) std::memcpy(&value, &content[at], sizeof value);
        return value;
    };
    DumpFacts facts;
    std::uint32_t crashed = 0;
    std::set<std::uint32_t> threads;
    for (std::size_t i = 0; i != word(8); ++i) {
        const std::size_t entry = word(12) + 12 * i;
        const std::size_t at = word(entry + 8);
        if (word(entry) == 6) {  // the exception
            crashed = word(at);
            facts.signal = word(at + 8);
        }
        if (word(entry) != 3) continue;  // the threads
        for (std::size_t k = 0; k != word(at); ++k) threads.insert(word(at + 4 + 48 * k));
    }
    facts.threads = threads.size();
    facts.hasCrashedThread = threads.contains(crashed);
    const std::size_t keys = content.find("ZBase crash keys");
    if (keys == std::string::npos) return facts;
    facts.hanging = word(keys + 32) != 0;
    const std::size_t end = keys + 48 + word(keys + 24);
    for (std::size_t at = keys + 48; at < end && end <= content.size();) {
        const std::string name = &content[at];
        const std::string value = &content[at + name.size() + 1];
        at += name.size() + value.size() + 2;
        facts.keys[name] = value;  // the last value counts
    }
    return facts;
}

// A few, or the number in scripts/soak.sh.
int Tries() {
    const char* const tries = std::getenv("ZBASE_CRASH_TRIES");
    return tries == nullptr ? 15 : std::atoi(tries);
}

class CrashStorm : public test::CrashBench {
protected:
    ChildResult Storm(const std::vector<std::string>& arguments) const {
        return Crash(arguments, {}, "CrashStormProbe");
    }
    std::unique_ptr<test::BackgroundChild> StormInBackground(const std::string& kind) const {
        return CrashInBackground({kind}, "CrashStormProbe");
    }

    // Each try gives one dump that arrives once, and an end by the signal in the dump.
    void ExpectOneOfEach(const std::vector<std::string>& arguments, int tries) {
        for (int i = 0; i != tries; ++i) {
            const ChildResult child = Storm(arguments);
            ASSERT_EQ(ReceivedDumps().size(), 1u) << "try " << i << ", ended by " << child.signal;
            const DumpFacts facts = FactsOf(ReceivedDumps()[0]);
            EXPECT_EQ(static_cast<unsigned int>(child.signal), facts.signal) << "try " << i;
            EXPECT_TRUE(facts.hasCrashedThread);
            EXPECT_TRUE(LeftDumps().empty());
            ForgetReceived();
        }
    }
    void ForgetReceived() const {
        for (const auto& entry : fs::directory_iterator(mReceived)) fs::remove(entry.path());
    }
};

TEST_F(CrashStorm, SignalsThatArriveWhileThreadsAreStoppedFreezeNothing) {
    StartServer();
    Configure();
    const ChildResult child = Storm({"signal-storm", "4"});
    EXPECT_EQ(child.signal, 0);
    EXPECT_EQ(child.output, "1111");
    ASSERT_EQ(ReceivedDumps().size(), 4u);
    EXPECT_TRUE(LeftDumps().empty());
    for (const fs::path& dump : ReceivedDumps()) EXPECT_GE(FactsOf(dump).threads, 6u);
}

TEST_F(CrashStorm, OfTwoThreadsIsOneDumpAndItsEnd) {
    StartServer();
    Configure();
    ExpectOneOfEach({"threads", "2"}, Tries());
}

TEST_F(CrashStorm, OfEightThreadsIsOneDumpAndItsEnd) {
    StartServer();
    Configure();
    ExpectOneOfEach({"threads", "8"}, Tries());
}

TEST_F(CrashStorm, OfAThreadThatIsCancelledIsReportedAllTheSame) {
    StartServer();
    Configure();
    ExpectOneOfEach({"cancelled-crash"}, 1);
}

TEST_F(CrashStorm, OnDemandAThreadIsCancelledBehindItsDumpOrStacks) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"cancelled-dump"}).output, "1 cancelled: 1 1 cancelled: 1 ");
    EXPECT_EQ(ReceivedDumps().size(), 2u);
}

TEST_F(CrashStorm, BesideADumpOnDemandHasItsOwnWholeDump) {
    StartServer();
    Configure();
    for (const char* microseconds : {"0", "1000", "3000", "6000", "10000", "15000"}) {
        const ChildResult child = Storm({"beside-dump", microseconds});
        EXPECT_EQ(child.signal, SIGSEGV);
        int crashes = 0;
        for (const fs::path& dump : ReceivedDumps()) {
            const DumpFacts facts = FactsOf(dump);
            EXPECT_TRUE(facts.hasCrashedThread);
            EXPECT_EQ(facts.hanging, facts.signal != SIGSEGV);
            crashes += facts.signal == SIGSEGV;
        }
        EXPECT_EQ(crashes, 1) << microseconds;
        ForgetReceived();
        for (const fs::path& dump : LeftDumps()) fs::remove(dump);  // of a dump that was being reported
    }
}

TEST_F(CrashStorm, ChildThatIsForkedWhileItsParentsCrashIsSentIsReported) {
    FixedServer hanging(Manner::eHang);
    mServer = hanging.Address();
    Configure();
    const auto child = StormInBackground("fork-beside-crash");
    hanging.WaitForRequests(1);
    child->Signal(SIGUSR1);
    while (LeftDumps().size() != 2) usleep(1000);
    hanging.Release();
    EXPECT_EQ(child->Wait(), SIGFPE);
    std::multiset<unsigned int> signals;
    for (const fs::path& dump : LeftDumps()) signals.insert(FactsOf(dump).signal);
    EXPECT_EQ(signals, (std::multiset<unsigned int>{SIGFPE, SIGSEGV}));
}

TEST_F(CrashStorm, ChildrenThatAreForkedDuringADumpCrashAndDumpForThemselves) {
    FixedServer hanging(Manner::eHang);
    mServer = hanging.Address();
    Configure();
    const auto child = StormInBackground("fork-beside-dump");
    hanging.WaitForRequests(1);
    child->Signal(SIGUSR1);
    while (LeftDumps().size() != 3) usleep(1000);
    hanging.Release();
    EXPECT_EQ(child->ReadLine(), "child crashed");
    EXPECT_EQ(child->ReadLine(), "child dumped");
    EXPECT_EQ(child->Wait(), 0);
    ASSERT_EQ(LeftDumps().size(), 3u);
    for (const fs::path& dump : LeftDumps())
        EXPECT_EQ(FactsOf(dump).hanging, FactsOf(dump).signal != SIGSEGV);
}

TEST_F(CrashStorm, ChildOfVforkIsReportedAndLeavesItsParentAsItWas) {
    StartServer();
    Configure();
    const ChildResult child = Storm({"vfork"});
    EXPECT_EQ(child.output, "11 1 1\n");
    EXPECT_EQ(child.signal, SIGFPE);
    std::multiset<unsigned int> signals;
    for (const fs::path& dump : ReceivedDumps()) signals.insert(FactsOf(dump).signal);
    EXPECT_EQ(signals.size(), 3u);
    EXPECT_EQ(signals.count(SIGSEGV) + signals.count(SIGFPE), 2u);
}

TEST_F(CrashStorm, ThreadThatWaitsForItsVforkIsNotWaitedFor) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"dump-beside-vfork"}).output, "1\n");
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

// All of them could be stopped within nine seconds. Half of one second is for stopping threads.
TEST_F(CrashStorm, ThreadsThatCanNotBeStoppedInTimeAreLeftOutOfTheDump) {
    StartServer();
    Configure("dump_seconds=1\n");
    EXPECT_EQ(Storm({"beside-vforks", "12"}).signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    const DumpFacts facts = FactsOf(ReceivedDumps()[0]);
    EXPECT_TRUE(facts.hasCrashedThread);
    EXPECT_LT(facts.threads, 13u);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashStorm, DumpLeavesNoChildToASubreaper) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"subreaper"}).output, "11 -1 0\n");
}

// The first process of a container inherits all orphans.
TEST_F(CrashStorm, DumpLeavesNoChildToTheFirstProcess) {
    const std::vector<std::string> first = {"/usr/bin/unshare", "--pid", "--fork", "--mount-proc"};
    const auto run = [&](const std::vector<std::string>& program) {
        std::vector<std::string> command = first;
        command.insert(command.end(), program.begin(), program.end());
        return test::RunChild(command, {"ZENT_CRASH_CONFIG_FILE=" + Config()});
    };
    if (run({"/bin/true"}).exitCode != 0) GTEST_SKIP() << "no processes of its own here";
    StartServer();
    Configure();
    EXPECT_EQ(run({test::ChildProgram("CrashStormProbe"), "subreaper"}).output, "11 -1 0\n");
}

TEST_F(CrashStorm, QuickExitElsewhereDoesNotComeFirst) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"quick-exit"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashStorm, ExitWaitsForADumpThatIsSent) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"exit-beside-dump"}).signal, 0);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashStorm, StackOfTheInstallingThreadIsGuarded) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"crash-stack"}).output, "1 1\n");
}

TEST_F(CrashStorm, FaultInTheAllocatorIsACrashInSpiteOfATranslator) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"translated-malloc"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
    const ChildResult child = Storm({"translated-strlen"});
    EXPECT_NE(child.output.find("caught"), std::string::npos) << child.signal;
}

TEST_F(CrashStorm, FrameOfMegabytesBehindAnOverflowLeavesItsCallersInTheDump) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"huge-frame"}).signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    const test::ReadDump dump = test::ReadDumpFile(ReceivedDumps()[0]);
    EXPECT_TRUE(dump.Has("UseHugeFrame"));
    EXPECT_TRUE(dump.Has("OverflowByHugeFrame"));
    EXPECT_TRUE(dump.Has("main"));
}

TEST_F(CrashStorm, StackPointerThatPointsNowhereLeavesTheCallersInTheDump) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"no-stack"}).signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    const test::ReadDump dump = test::ReadDumpFile(ReceivedDumps()[0]);
    EXPECT_TRUE(dump.Has("LoseStack"));
    EXPECT_TRUE(dump.Has("CrashWithoutStack"));
    EXPECT_TRUE(dump.Has("main"));
}

TEST_F(CrashStorm, ThreadThatWasStartedWithAllSignalsBlockedIsReported) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"blocked"}).signal, SIGSEGV);
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashStorm, KeysAreSetFromManyThreadsBesideACrash) {
    StartServer();
    Configure("", "product=probe\n");
    EXPECT_EQ(Storm({"beside-keys"}).signal, SIGSEGV);
    CrashKeys keys = ReceivedKeys(1);
    EXPECT_EQ(keys["product"], "probe");
    keys.erase("product");
    EXPECT_GE(keys.size(), 1u);
    for (const auto& [name, value] : keys) {
        EXPECT_TRUE(name.size() == 4 && name.starts_with("key")) << name;
        EXPECT_EQ(value, std::string(value.size(), 'v'));
    }
}

TEST_F(CrashStorm, KeysOfAChildAreWrittenAnewBesideItsDumpAndNothingIsLeaked) {
    StartServer();
    Configure();
    EXPECT_EQ(Storm({"keys-in-child"}).output, "1 flat\n");
    EXPECT_EQ(ReceivedDumps().size(), 1u);
}

TEST_F(CrashStorm, ThousandsOfKeysAreSetThousandsOfTimesWithinItsMinute) {
    mServer = "http://127.0.0.1:1/";
    Configure();
    EXPECT_EQ(Storm({"many-keys"}).signal, SIGSEGV);
    ASSERT_EQ(LeftDumps().size(), 1u);
    const CrashKeys keys = FactsOf(LeftDumps()[0]).keys;
    EXPECT_EQ(keys.size(), 2000u);
    for (const auto& [name, value] : keys) EXPECT_EQ(value, "99") << name;
}

}  // namespace
