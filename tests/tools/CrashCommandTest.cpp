#include <Base/ZBase.h>
#include <Base/crash/detail/CrashContract.h>
#include <TestPlaces.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <sstream>
#include <thread>
#include <vector>

#include "tests/crash/FixedServer.h"
#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/RemoveFolder.h"

// zbase crash, as an operator uses it.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashCommand : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zbase-crash-XXXXXX";
        mFolder = mkdtemp(name);
        fs::create_directory(mFolder / "received");
    }
    void TearDown() override { test::RemoveFolder(mFolder); }

    void Configure(const std::string& server, const std::string& more = "") const {
        std::ofstream(mFolder / "crash_report.ini")
            << "[Config]\nServerURL=" << server << "\nServerProdURL=" << server
            << "\ndump_path=" << (mFolder / "dumps").string() << "\n"
            << more << "[CrashKeys]\nproduct=probe\n";
    }

    ChildResult Crash(std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), {ZBASE_COMMAND, "crash"});
        return test::RunChild(arguments, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string(),
                                          "LC_ALL=C.UTF-8"});
    }

    ChildResult Probe(const std::string& kind, const std::vector<std::string>& keys = {},
                      const std::string& program = "CrashProbe") const {
        std::vector<std::string> command = {test::ChildProgram(program), kind, "run", "7"};
        command.insert(command.end(), keys.begin(), keys.end());
        return test::RunChild(command, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string()});
    }

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

    std::string OnlyDump() const {
        std::string dump;
        for (const auto& entry : fs::directory_iterator(mFolder / "dumps")) dump = entry.path();
        return dump;
    }

    // Puts a name as long in the place of one of its modules.
    static void RenameInDump(const std::string& dump, const std::string& from, const std::string& to) {
        ASSERT_EQ(from.size(), to.size());
        const auto utf16 = [](const std::string& text) {
            std::string units;
            for (const char letter : text) units += {letter, '\0'};
            return units;
        };
        std::ostringstream read;
        read << std::ifstream(dump, std::ios::binary).rdbuf();
        std::string content = read.str();
        std::size_t at = content.find(utf16(from));
        ASSERT_NE(at, std::string::npos);
        for (; at != std::string::npos; at = content.find(utf16(from)))
            content.replace(at, 2 * from.size(), utf16(to));
        std::ofstream(dump, std::ios::binary) << content;
    }

    static bool Has(const std::string& text, const std::string& part) {
        return text.find(part) != std::string::npos;
    }

    fs::path mFolder;
};

TEST_F(CrashCommand, CheckTellsWhatEachLineMeans) {
    Configure("http://127.0.0.1:1/", "enable=True\nunknown=1\n");
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_TRUE(Has(child.output, "named by ZENT_CRASH_CONFIG_FILE"));
    EXPECT_TRUE(Has(child.output, "crash reporting is off (only \"true\" and \"TRUE\" count as true)"));
    EXPECT_TRUE(Has(child.output, "counts for nothing: no setting has this name"));
    EXPECT_TRUE(Has(child.output, "No crash handler: enable is not true."));
}

TEST_F(CrashCommand, CheckOfAGoodConfigurationSucceeds) {
    Configure("http://127.0.0.1:1/");
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.exitCode, 0) << child.output;
    EXPECT_TRUE(Has(child.output, "would be installed"));
    EXPECT_FALSE(fs::exists(mFolder / "dumps"));
}

TEST_F(CrashCommand, CheckNamesWhatStopsTheInstallation) {
    std::ofstream(mFolder / "crash_report.ini") << "[Config]\nServerURL=x\n";
    EXPECT_TRUE(Has(Crash({"check"}).output, "ServerProdURL is missing"));
    std::ofstream(mFolder / "crash_report.ini") << "";
    EXPECT_TRUE(Has(Crash({"check"}).output, "ServerURL is missing"));
    std::ofstream(mFolder / "crash_report.ini")
        << "[Config]\nServerURL=\nServerProdURL=\ndump_path=/no/such/place\n";
    EXPECT_TRUE(Has(Crash({"check"}).output, "there is no directory /no/such"));
}

TEST_F(CrashCommand, MissingConfigurationIsAComplaint) {
    for (const char* command : {"check", "test", "send"}) {
        const ChildResult child = Crash({command});
        EXPECT_EQ(child.exitCode, 1);
        EXPECT_TRUE(Has(child.errors, "No such file or directory")) << child.errors;
    }
}

TEST_F(CrashCommand, ShowTellsReasonStackAndKeys) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output.rfind("SIGSEGV /SEGV_MAPERR at 0x0, thread 0 (", 0), 0u) << child.output;
    EXPECT_TRUE(Has(child.output, "WriteToNull"));
    EXPECT_TRUE(Has(child.output, "Crash keys\n  product=probe\n  run=7\nModules\n"));
    EXPECT_TRUE(Has(child.output, test::ChildProgram("CrashProbe")));
}

TEST_F(CrashCommand, ShowTellsTheNotesFromTheOldestOn) {
    Configure("http://127.0.0.1:1/");
    Probe("notes", {}, "LastWordsProbe");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_TRUE(Has(child.output, "Notes\n  note 7"));
    EXPECT_TRUE(Has(child.output,
                    "  note 9998\n  note 9999\n  \n  one line\n    and another, \\x1B[31min red\nModules\n"))
        << child.output;
}

TEST_F(CrashCommand, ShowTellsTheLastWords) {
    Configure("http://127.0.0.1:1/");
    Probe("message", {}, "LastWordsProbe");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_TRUE(Has(child.output,
                    "Crash keys\n  exception=Nothing could be loaded. (Server message 104)\tnames.txt is not "
                    "text. (Server message 103)\n"
                    "  exception_type=ZBase::Message\n  product=probe\n  run=7\n"))
        << child.output;
}

TEST_F(CrashCommand, ShowListsNoFileOfDataAmongTheModules) {
    Configure("http://127.0.0.1:1/");
    Probe("mapped");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_TRUE(Has(child.output, "WriteToNull")) << child.output;
    const std::size_t modules = child.output.find("\nModules\n");
    ASSERT_NE(modules, std::string::npos);
    EXPECT_TRUE(Has(child.output.substr(modules), test::ChildProgram("CrashProbe") + "\n"));
    EXPECT_TRUE(Has(child.output.substr(modules), "/libc.so.6\n"));
    EXPECT_FALSE(Has(child.output.substr(modules), "crash_report.ini")) << child.output;
}

// In a stripped file the C library's code that calls main has no symbol; an exported function precedes it.
TEST_F(CrashCommand, ShowNamesNoCodeAfterASymbolThatEndsBeforeIt) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string output = Crash({"show", OnlyDump()}).output;
    const std::string stack = output.substr(0, output.find("Crash keys\n"));
    EXPECT_TRUE(Has(stack, "\tlibc.so.6\t")) << stack;
    EXPECT_FALSE(Has(stack, "__libc_init_first")) << stack;
    EXPECT_TRUE(Has(stack, "__libc_start_main")) << stack;
}

TEST_F(CrashCommand, ShowOfAllThreadsTellsTheirNames) {
    Configure("http://127.0.0.1:1/");
    Probe("names", {}, "ConfinedProbe");
    const ChildResult all = Crash({"show", "--all", OnlyDump()});
    EXPECT_TRUE(Has(all.output, ", the\\x01first)\n")) << all.output;
    EXPECT_TRUE(Has(all.output, "\nThread 1 (")) << all.output;
    EXPECT_TRUE(Has(all.output, ", worker 7)\n  0\t"));
    EXPECT_FALSE(Has(Crash({"show", OnlyDump()}).output, "worker 7"));
}

TEST_F(CrashCommand, ShowOfWhatIsNoDumpFails) {
    std::ofstream(mFolder / "x.dmp") << "nothing";
    EXPECT_EQ(Crash({"show", mFolder / "x.dmp"}).exitCode, 1);
    EXPECT_EQ(Crash({"show", mFolder / "missing"}).exitCode, 1);
}

TEST_F(CrashCommand, ShowOfAnIncompleteDumpShowsWhatIsThereAndFails) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string dump = OnlyDump();
    fs::resize_file(dump, fs::file_size(dump) / 10 * 9);  // the last streams are not there
    const ChildResult child = Crash({"show", dump});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_EQ(child.errors, "zbase: " + dump + ": no whole dump\n");
    EXPECT_TRUE(Has(child.output, "CrashProbe\n")) << child.output;
    EXPECT_FALSE(Has(child.output, "rash keys\n")) << child.output;
}

// A dump may come from anybody.
TEST_F(CrashCommand, ShowNamesModulesWithoutControlCharacters) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    RenameInDump(OnlyDump(), "/CrashProbe", "/\x1B[2JProbe!");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output.find('\x1B'), std::string::npos) << child.output;
    EXPECT_TRUE(Has(child.output, "\t\\x1B[2JProbe!\t")) << child.output;
    EXPECT_TRUE(Has(child.output, "/\\x1B[2JProbe!\n")) << child.output;
}

TEST_F(CrashCommand, ShowTellsThePathsOfModulesOfOneName) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string dump = OnlyDump();
    RenameInDump(dump, "gnu/libm.so.6", "GNU/libc.so.6");
    const ChildResult child = Crash({"show", dump});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_TRUE(Has(child.output, "gnu/libc.so.6\n")) << child.output;
    EXPECT_TRUE(Has(child.output, "GNU/libc.so.6\n")) << child.output;
    EXPECT_TRUE(Has(child.output, "\tlibc.so.6\t__libc_start_main\n")) << child.output;
}

TEST_F(CrashCommand, ShowTellsAPathWithAQuote) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    RenameInDump(OnlyDump(), "/CrashProbe", "/Crash\"robe");
    const ChildResult child = Crash({"show", OnlyDump()});
    const std::string path = fs::path(test::ChildProgram("CrashProbe")).replace_filename("Crash\"robe");
    EXPECT_TRUE(Has(child.output, "  " + path + "\n")) << child.output;
}

TEST_F(CrashCommand, ShowOpensNoPipeThatADumpNames) {
    Configure("http://127.0.0.1:1/");
    const std::string program = mFolder / "Probe";
    fs::copy_file(test::ChildProgram("CrashProbe"), program);
    test::RunChild({program, "null"}, {"ZENT_CRASH_CONFIG_FILE=" + (mFolder / "crash_report.ini").string()});
    fs::remove(program);
    ASSERT_EQ(mkfifo(program.c_str(), 0600), 0);
    std::atomic<bool> isRead = false;
    std::thread writer([&] {
        close(open(program.c_str(), O_WRONLY | O_CLOEXEC));  // waits for a reader
        isRead = true;
    });
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_FALSE(isRead);
    const int reader = open(program.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    writer.join();
    close(reader);
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_TRUE(Has(child.output, "\tProbe\t0x")) << child.output;
}

TEST_F(CrashCommand, TestTellsThatTheReportDoesNotArrive) {
    Configure("http://127.0.0.1:1/");
    const ChildResult child = Crash({"test"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_TRUE(Has(child.output, "did not arrive at http://127.0.0.1:1/"));
}

TEST_F(CrashCommand, SendSendsWhatWasLeftBehindWithItsKeysAndDeletesIt) {
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
TEST_F(CrashCommand, SendKeepsTheKeysBesideATextThatLooksLikeThem) {
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

TEST_F(CrashCommand, SendChoosesTheServerThatTheProcessWouldHaveChosen) {
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

TEST_F(CrashCommand, SendKeepsWhatItSentIfTheFileSaysSo) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    const ChildResult sent = Crash({"send"});
    EXPECT_EQ(sent.exitCode, 0);
    EXPECT_TRUE(Has(sent.output, ": sent, report 1, stays by keep_dump_file\n")) << sent.output;
    EXPECT_NE(OnlyDump(), "");
}

TEST_F(CrashCommand, SendLeavesWhatIsNoWholeDump) {
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

TEST_F(CrashCommand, CheckNamesWhatCanNeverWork) {
    const auto check = [this](const std::string& settings) {
        std::ofstream(mFolder / "crash_report.ini") << "[Config]\n" << settings;
        return Crash({"check"});
    };
    const std::string servers = "ServerURL=http://a/\nServerProdURL=http://a/\n";
    EXPECT_EQ(check(servers).exitCode, 0);
    const struct {
        std::string settings;
        const char* said;
    } kCases[] = {
        {servers + "dump_path=/dev/null\n", "No crash handler: the dump path /dev/null is no directory."},
        {servers + "dump_path=/dev/null/x\n", "there is no directory /dev/null"},
        {servers + "dump_path=/proc/self\n", "nothing can be written to the dump path /proc/self"},
        {"ServerURL=ftp://a/\nServerProdURL=http://a/\n",
         "No report would arrive: ServerURL is no http:// or https:// address."},
        {"ServerURL=http://a/\nServerProdURL=\n", "No report would arrive: ServerProdURL is empty."},
        {"ServerURL= http://a/\nServerProdURL=HTTPS://a\n",
         "No report would arrive: ServerURL has a blank in it."},
        {"ServerURL=http:///x\nServerProdURL=https://\n",
         "No report would arrive: ServerProdURL names no server."},
        {"ServerURL =http://a/\nServerProdURL=http://a/\n", "ServerURL is missing"},
    };
    for (const auto& one : kCases) {
        const ChildResult child = check(one.settings);
        EXPECT_EQ(child.exitCode, 1) << one.settings;
        EXPECT_TRUE(Has(child.output, one.said)) << child.output;
    }
}

TEST_F(CrashCommand, CheckNamesFilesThatWouldNotGoAlong) {
    std::ofstream(mFolder / "there") << "x";
    const auto setting = [this](const char* name, const char* file) {
        return std::string("attachment_") + name + "=" + (mFolder / file).string() + "\n";
    };
    Configure("http://127.0.0.1:1/", "max_attachments=4\n" + setting("1", "there") + setting("2", "missing") +
                                         setting("3", "received") + "attachment_4=\n" +
                                         setting("5", "there") + "attachment=x\n");
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.exitCode, 0) << child.output;
    const std::string folder = mFolder.string();
    const std::string lost = "No file would go along as attachment_";
    EXPECT_TRUE(Has(child.output, lost + "2: " + folder + "/missing is not there.\n" + lost + "3: " + folder +
                                      "/received is no regular file.\n" + lost + "4: names no file.\n" +
                                      lost + "5: more than max_attachments.\n"))
        << child.output;
    EXPECT_FALSE(Has(child.output, lost + "1"));
    EXPECT_TRUE(Has(child.output, "  a file whose end goes with each report\n"));
    EXPECT_TRUE(Has(child.output, "the most files that go with a report\n"));
    EXPECT_TRUE(Has(child.output, "counts for nothing: no setting has this name\n"));
}

// Whatever the table of settings has.
TEST_F(CrashCommand, CheckKnowsEachSetting) {
    using ZBase::detail::ECrashSetting;
    std::string settings;
    std::string meanings;
    for (const auto& row : ZBase::detail::kCrashSettings) {
        const std::string key = ZBase::WideCharToUTF8(row.key, true).c_str();
        std::string value = row.yes == nullptr ? "true" : row.yes;
        if (row.kind == ECrashSetting::eNumber) value = std::to_string(row.usualNumber);
        if (row.kind == ECrashSetting::eText) value = "http://a/";
        const std::string line = key + "=" + value;
        settings += line + "\n";
        meanings += line + std::string(50 - line.size(), ' ') + row.meaning + "\n";
    }
    std::ofstream(mFolder / "crash_report.ini") << "[Config]\n" << settings;
    std::string told;
    std::istringstream lines(Crash({"check"}).output);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t tab = line.find('\t');
        if (tab != std::string::npos && !line.starts_with("  1\t")) told += line.substr(tab + 1) + "\n";
    }
    EXPECT_EQ(told, meanings);
}

TEST_F(CrashCommand, CheckNamesLinesThatCountForNothing) {
    std::ofstream(mFolder / "crash_report.ini")
        << "[Config]\nServerURL=http://a/\nServerProdURL=http://a/\nmax_dumps =3\nmax_dumps=many\n"
        << "dump_seconds=61\nmax_age_days=7\nmax_dmups=4\n[CrashKeys] \n";
    const ChildResult child = Crash({"check"});
    EXPECT_TRUE(Has(child.output, "no setting has this name, blanks belong to it\n")) << child.output;
    EXPECT_TRUE(Has(child.output,
                    "the most dumps that are kept; 0: any number (no number from 0 to 1000000: 50 counts)"));
    EXPECT_TRUE(Has(child.output, "the most seconds for writing a dump (no number from 1 to 60: 10 counts)"));
    EXPECT_TRUE(Has(child.output, "the days after which a dump goes; 0: never\n"));
    EXPECT_TRUE(Has(child.output, "counts for nothing: no setting has this name\n"));
    EXPECT_TRUE(Has(child.output, "neither a header, which is a whole line, nor a key and a value\n"));
}

TEST_F(CrashCommand, TextsFromElsewhereComeWithoutControlCharacters) {
    std::ofstream(mFolder / "crash_report.ini")
        << "[Config]\nServerURL=http://a/\x1B[31m\nServerProdURL=http://a/\n# "
           "\x07\x7F\xC2\x9B\xE2\x80\xAE\xFF \xC3\xA9\n";
    const ChildResult child = Crash({"check"});
    EXPECT_EQ(child.output.find('\x1B'), std::string::npos);
    EXPECT_TRUE(Has(child.output, "ServerURL=http://a/\\x1B[31m")) << child.output;
    EXPECT_TRUE(Has(child.output, "# \\x07\\x7F\\xC2\\x9B\\xE2\\x80\\xAE\\xFF \xC3\xA9 ")) << child.output;
    const ChildResult missing = Crash({"show", "/nowhere/\x1B]0;x\x07"});
    EXPECT_EQ(missing.errors.find('\x1B'), std::string::npos);
    EXPECT_TRUE(Has(missing.errors, "/nowhere/\\x1B]0;x\\x07: No such file")) << missing.errors;
}

TEST_F(CrashCommand, AnswerOfTheServerComesWithoutControlCharacters) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const test::FixedServer server(
        test::Manner::eAnswer, "HTTP/1.1 200 OK\r\nContent-Length: 6\r\nConnection: close\r\n\r\n\x1B[31m\n");
    Configure(server.Address());
    const ChildResult child = Crash({"send"});
    EXPECT_EQ(child.exitCode, 0);
    EXPECT_TRUE(Has(child.output, ": sent, report \\x1B[31m\\x0A\n")) << child.output;
}

TEST_F(CrashCommand, TestFailsWhenNoReportArrivesThoughDumpsStay) {
    Configure("http://127.0.0.1:1/", "keep_dump_file=true\n");
    EXPECT_EQ(Crash({"test"}).exitCode, 1);
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    const ChildResult child = Crash({"test"});
    EXPECT_EQ(child.exitCode, 0) << child.output;
    EXPECT_TRUE(Has(child.output, "its report arrived at http://127.0.0.1:")) << child.output;
}

TEST_F(CrashCommand, ReceiverRefusesWhatItCanNotServe) {
    const std::string received = mFolder / "received";
    const struct {
        std::vector<std::string> arguments;
        int status;
        const char* said;
    } kCases[] = {
        {{(mFolder / "missing").string()}, 1, "is no directory that can be written to"},
        {{(mFolder / "missing").string(), "0"}, 1, "is no directory that can be written to"},
        {{"/dev/null"}, 1, "is no directory that can be written to"},
        {{received, "http"}, 2, "http is no port"},
        {{received, "65536"}, 2, "65536 is no port"},
        {{received, "8080x"}, 2, "8080x is no port"},
        {{received, ""}, 2, " is no port"},
        {{received, "-1"}, 2, "there is no option -1"},
        {{"--port", "1"}, 2, "there is no option --port"},
        {{}, 2, "usage: crash-receiver"},
        {{received, "0", "certificate"}, 2, "usage: crash-receiver"},
    };
    for (const auto& one : kCases) {
        std::vector<std::string> command = {ZBASE_CRASH_RECEIVER};
        command.insert(command.end(), one.arguments.begin(), one.arguments.end());
        const ChildResult child = test::RunChild(command);
        EXPECT_EQ(child.exitCode, one.status) << child.errors;
        EXPECT_TRUE(Has(child.errors, one.said)) << child.errors;
    }
}

TEST_F(CrashCommand, ReceiverThatCanNotStoreLeavesTheReportWithItsSender) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    fs::remove(mFolder / "received");
    EXPECT_EQ(Crash({"send"}).exitCode, 1);
    EXPECT_NE(OnlyDump(), "");
    fs::create_directory(mFolder / "received");
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::is_empty(mFolder / "dumps"));
}

TEST_F(CrashCommand, ReceiverGoesOnBehindTheReportsThatAreThere) {
    std::ofstream(mFolder / "received" / "7-log.txt") << "of an earlier one";
    std::ofstream(mFolder / "received" / "notes.txt") << "nobody's";
    Configure("http://127.0.0.1:1/");
    Probe("null");
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine());
    EXPECT_EQ(Crash({"send"}).exitCode, 0);
    EXPECT_TRUE(fs::exists(mFolder / "received" / "8.dmp"));
    EXPECT_FALSE(fs::exists(mFolder / "received" / "1.dmp"));
}

TEST_F(CrashCommand, SendDoesNotRepeatWhatItSentAndKept) {
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

TEST_F(CrashCommand, SendGoesOnAfterWhatIsNoDump) {
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

TEST_F(CrashCommand, SendStopsWhenTheReportsOfTheDayAreUsedUp) {
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

TEST_F(CrashCommand, SendLeavesWhatAnotherProcessHas) {
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

TEST_F(CrashCommand, SendTellsWhyItCanNotHaveADump) {
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
TEST_F(CrashCommand, SendLeavesWhatAnotherHasSentMeanwhile) {
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

TEST_F(CrashCommand, ManySendersSendEachDumpOnce) {
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

TEST_F(CrashCommand, TestsWithAReceiverOfItsOwn) {
    const ChildResult child = Crash({"test", "--local"});
    EXPECT_EQ(child.exitCode, 0) << child.errors << child.output;
    EXPECT_TRUE(Has(child.output, "A dump was written, and its report arrived at http://127.0.0.1:"));
    EXPECT_TRUE(Has(child.output, "product=zbase"));
    EXPECT_TRUE(Has(child.output, "zbase_crash_test=1"));
}

}  // namespace
