#include <Base/ZBase.h>
#include <TestPlaces.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "tests/crash/FixedServer.h"
#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/linux/CrashCommandBench.h"

// zbase crash send, beside other senders too.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashSend : public test::CrashCommandBench {
protected:
    // Also a superuser then has no more than the rights of files.
    ChildResult CrashByRights(const std::string& command) const {
        std::vector<std::string> line = {ZBASE_COMMAND, "crash", command};
        if (geteuid() == 0)
            line.insert(line.begin(), {"/usr/bin/setpriv", "--bounding-set=-dac_override,-dac_read_search"});
        return test::RunChild(line, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string()});
    }

    // Returns the exit status. While the command is stopped, `act` runs.
    int SendAndStopAtTheFirstLock(std::string& output, const std::function<void()>& act) const {
        int pipe[2];
        if (pipe2(pipe, O_CLOEXEC) != 0) return -1;
        const pid_t child = fork();
        if (child == 0) {
            setenv("ZENT_CRASH_CONFIG_FILE", (mFolder / "crash_report.ini").c_str(), 1);
            if (dup2(pipe[1], STDOUT_FILENO) >= 0 && ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) == 0)
                execl(ZBASE_COMMAND, ZBASE_COMMAND, "crash", "send", nullptr);
            _exit(99);
        }
        close(pipe[1]);
        int status = 0;
        while (waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
            ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD);
            __ptrace_syscall_info call{};
            ptrace(PTRACE_GET_SYSCALL_INFO, child, sizeof call, &call);
            const bool isLock = call.op == PTRACE_SYSCALL_INFO_ENTRY && call.entry.nr == SYS_flock;
            if (isLock) act();
            ptrace(isLock ? PTRACE_DETACH : PTRACE_SYSCALL, child, nullptr, nullptr);
        }
        char piece[4096];
        for (ssize_t count = 0; (count = read(pipe[0], piece, sizeof piece)) > 0;)
            output.append(piece, static_cast<std::size_t>(count));
        close(pipe[0]);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
};

TEST_F(CrashSend, SendsWhatWasLeftBehindWithItsKeysAndDeletesIt) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    Probe("dump");
    const ChildResult failed = Crash({"send"});
    EXPECT_EQ(failed.exitCode, 1);
    EXPECT_TRUE(Has(failed.output, "not sent, stays"));

    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 0) << sent.output;
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
    std::string keys;
    for (const char* name : {"1.keys", "2.keys"}) {
        std::ifstream file(mFolder / "received" / name);
        for (std::string line; std::getline(file, line);) keys += line + ";";
    }
    const std::string plain = "product=probe;run=7;";
    EXPECT_TRUE(keys == plain + "product=probe;reason=hanging;run=7;" ||
                keys == "product=probe;reason=hanging;run=7;" + plain)
        << keys;
    EXPECT_EQ(Crash({"test"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "received" / "3.dmp"));
}

// A dump holds the command line too, here as the head of an empty block that would be newer.
TEST_F(CrashSend, KeepsTheKeysBesideATextThatLooksLikeThem) {
    Configure("http://127.0.0.1:1/");
    std::vector<std::string> keys(64);
    keys[0] = "ZBase crash keys\x7F";
    Probe("null", keys);
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    std::ifstream file(mFolder / "received" / "1.keys");
    const std::string received((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_TRUE(Has(received, "run=7\n")) << received;
    EXPECT_TRUE(Has(received, "product=probe\n")) << received;
}

TEST_F(CrashSend, ChoosesTheServerThatTheProcessWouldHaveChosen) {
    const auto configure = [this](const std::string& server, const std::string& production) {
        std::ofstream(mFolder / "crash_report.ini")
            << "[Config]\nServerURL=" << server << "\nServerProdURL=" << production
            << "\ndump_path=" << (mFolder / "dumps").string() << "\n[CrashKeys]\ncustomer_dsi=5\n";
    };
    const std::string nobody = "http://127.0.0.1:1/";
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    const std::string address = server.ReadLine();
    const auto reports = [this] {
        const auto folder = fs::directory_iterator(mFolder / "received");
        return std::distance(begin(folder), end(folder)) / 2;  // dumps and their keys
    };
    configure(nobody, nobody);
    Probe("null");  // the file's key does not choose the server
    configure(nobody, address);
    EXPECT_EQ(Crash({"send"}).exitCode, 1);
    configure(address, nobody);
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_EQ(reports(), 1);

    configure(nobody, nobody);
    Probe("late-customer");  // the call does, and a later one does not undo it
    configure(address, nobody);
    EXPECT_EQ(Crash({"send"}).exitCode, 1);
    configure(nobody, address);
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_EQ(reports(), 2);
    std::ifstream keys(mFolder / "received" / "2.keys");
    std::string line;
    EXPECT_TRUE(std::getline(keys, line) && line == "customer_dsi=0") << line;
}

TEST_F(CrashSend, KeepsWhatItSentIfTheFileSaysSo) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 0);
    EXPECT_TRUE(Has(sent.output, ": sent, report 1, stays by keep_dump_file\n")) << sent.output;
    EXPECT_NE(OnlyDump(), "");
}

TEST_F(CrashSend, LeavesWhatIsNoWholeDump) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string dump = OnlyDump();
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    fs::copy_file(dump, mFolder / "dumps" / "partial.dmp");
    fs::resize_file(mFolder / "dumps" / "partial.dmp", fs::file_size(dump) / 2);
    fs::copy_file(dump, mFolder / "dumps" / "short.dmp");
    fs::resize_file(mFolder / "dumps" / "short.dmp", 40);
    std::ofstream(mFolder / "dumps" / "empty.dmp");
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 1);
    for (const char* name : {"partial", "short", "empty"}) {
        EXPECT_TRUE(Has(sent.output, std::string(name) + ".dmp: no whole dump, stays\n")) << sent.output;
        EXPECT_TRUE(fs::exists(mFolder / "dumps" / (std::string(name) + ".dmp")));
    }
    EXPECT_FALSE(fs::exists(dump));
    EXPECT_TRUE(fs::exists(mFolder / "received" / "1.dmp"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "2.dmp"));
}

TEST_F(CrashSend, AnswerOfTheServerComesWithoutControlCharacters) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const test::FixedServer server(
        test::Manner::eAnswer, "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\n\x1B[31m\n");
    Configure(server.Address());
    const ChildResult child = Crash({"send"});
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_TRUE(Has(child.output, ": sent, report \\x1B[31m\\x0A\n")) << child.output;
}

TEST_F(CrashSend, DoesNotRepeatWhatItSentAndKept) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    const ChildResult again = Crash({"send"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_TRUE(Has(again.output, ": was sent before, stays\n")) << again.output;
    EXPECT_FALSE(fs::exists(mFolder / "received" / "2.dmp"));
}

TEST_F(CrashSend, GoesOnAfterWhatIsNoDump) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string dump = OnlyDump();
    const fs::path dumps = mFolder / "dumps";
    fs::copy_file(dump, mFolder / "elsewhere");
    fs::create_directory(dumps / "0.dmp");
    ASSERT_EQ(mkfifo((dumps / "00.dmp").c_str(), 0600), 0);
    fs::create_symlink(mFolder / "elsewhere", dumps / "000.dmp");
    fs::create_symlink(mFolder / "nowhere", dumps / "0000.dmp");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 1);
    for (const char* name : {"0", "00", "000", "0000"})
        EXPECT_TRUE(Has(sent.output, "/" + std::string(name) + ".dmp: no whole dump, stays\n"))
            << sent.output;
    EXPECT_TRUE(Has(sent.output, dump + ": sent, report 1\n")) << sent.output;
    EXPECT_FALSE(fs::exists(dump));
    EXPECT_TRUE(fs::exists(mFolder / "elsewhere"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "2.dmp"));
}

TEST_F(CrashSend, StopsWhenTheReportsOfTheDayAreUsedUp) {
    Configure("http://127.0.0.1:1/", "send_left=false\n");
    Probe("null");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    const std::string address = server.ReadLine();
    Configure(address, "max_reports_per_day=1\n");
    for (int i = 0; i != 2; ++i) {
        const ChildResult sent = Crash({"send"});
        EXPECT_EQ(sent.exitCode, 1);
        EXPECT_TRUE(Has(sent.output, "the reports of this day are used up")) << sent.output;
    }
    EXPECT_TRUE(fs::exists(mFolder / "received" / "1.dmp"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "2.dmp"));
    Configure(address, "max_reports_per_day=2\n");
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "received" / "2.dmp"));
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
}

TEST_F(CrashSend, LeavesWhatAnotherProcessHas) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string dump = OnlyDump();
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    const int held = open(dump.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(flock(held, LOCK_EX), 0);
    const ChildResult first = Crash({"send"});
    EXPECT_EQ(first.exitCode, 0);
    EXPECT_TRUE(Has(first.output, ": is being written or sent by another process\n")) << first.output;
    EXPECT_FALSE(fs::exists(mFolder / "received" / "1.dmp"));
    close(held);
    // The state after a sender was killed.
    fs::rename(dump, fs::path(dump).replace_extension(".sending.dmp"));
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "received" / "1.dmp"));
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
}

TEST_F(CrashSend, TellsWhyItCanNotHaveADump) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const fs::path dump = OnlyDump();
    const fs::path dumps = dump.parent_path();
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());

    fs::copy_file(dump, dumps / "0.dmp");
    fs::permissions(dumps / "0.dmp", fs::perms::none);
    const ChildResult unreadable = CrashByRights("send");
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_TRUE(Has(unreadable.output, "/0.dmp: Permission denied, stays\n" + dump.string() + ": sent, "))
        << unreadable.output;

    fs::permissions(dumps / "0.dmp", fs::perms::owner_read);
    fs::permissions(dumps, fs::perms::owner_read | fs::perms::owner_exec);
    const ChildResult fixed = CrashByRights("send");
    EXPECT_EQ(fixed.exitCode, 1);
    EXPECT_TRUE(Has(fixed.output, "/0.dmp: Permission denied, stays\n")) << fixed.output;

    fs::permissions(dumps, fs::perms::owner_write | fs::perms::owner_exec);
    const ChildResult unlisted = CrashByRights("send");
    EXPECT_EQ(unlisted.exitCode, 1);
    EXPECT_TRUE(Has(unlisted.errors, dumps.string() + ": Permission denied\n")) << unlisted.errors;

    fs::permissions(dumps, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_TRUE(Has(CrashByRights("send").output, "/0.dmp: Permission denied, stays\n"));

    // Its name while it is sent is another's.
    fs::permissions(dumps, fs::perms::owner_all);
    fs::create_directory(dumps / "0.sending.dmp");
    const ChildResult twofold = Crash({"send"});
    EXPECT_EQ(twofold.exitCode, 1);
    EXPECT_TRUE(Has(twofold.output, "/0.dmp: File exists, stays\n")) << twofold.output;
    EXPECT_FALSE(fs::exists(mFolder / "received" / "2.dmp"));
}

// The other sender is the test: at work after this one has looked at the first dump, and before it locks it.
TEST_F(CrashSend, LeavesWhatAnotherHasSentMeanwhile) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const fs::path dump = OnlyDump();
    const fs::path first = dump.parent_path() / "0.dmp";
    const fs::path second = dump.parent_path() / "1.dmp";
    fs::copy_file(dump, first);
    fs::rename(dump, second);
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    std::string output;
    const int exitCode = SendAndStopAtTheFirstLock(output, [&] {
        ZBase::ClaimedDump claim;
        EXPECT_TRUE(claim.Claim(first.string()) && claim.MarkSent());
        fs::remove(second);
    });
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(output, first.string() + ": was sent before, stays\n" + second.string() +
                          ": is gone, another process has taken it\n");
    EXPECT_TRUE(fs::exists(first));
    EXPECT_TRUE(fs::is_empty(mFolder / "received"));
}

TEST_F(CrashSend, ManySendersSendEachDumpOnce) {
    Configure("http://127.0.0.1:1/", "send_left=false\n");
    Probe("dump-first");
    Probe("dump-first");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    std::vector<std::unique_ptr<test::BackgroundChild>> senders;
    for (int i = 0; i != 4; ++i) {
        senders.push_back(std::make_unique<test::BackgroundChild>(std::vector<std::string>{
            "/usr/bin/env", "ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string(),
            ZBASE_COMMAND, "crash", "send"}));
    }
    for (const auto& sender : senders) sender->Wait();
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
    EXPECT_TRUE(fs::exists(mFolder / "received" / "6.dmp"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "7.dmp"));
}

}  // namespace
