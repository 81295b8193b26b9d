#include <Base/ZBase.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "tests/support/ChildProcess.h"
#include "tests/tools/linux/CrashCommandBench.h"

// zbase crash show, of dumps of programs that crash.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashShow : public test::CrashCommandBench {
protected:
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
};

TEST_F(CrashShow, TellsReasonStackAndKeys) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output.rfind("SIGSEGV /SEGV_MAPERR at 0x0, thread 0 (", 0), 0u) << child.output;
    EXPECT_TRUE(Has(child.output, "WriteToNull"));
    EXPECT_TRUE(Has(child.output, "Crash keys\n  product=probe\n  run=7\nModules\n"));
    EXPECT_TRUE(Has(child.output, test::ChildProgram("CrashProbe")));
}

TEST_F(CrashShow, TellsTheNotesFromTheOldestOn) {
    Configure("http://127.0.0.1:1/");
    Probe("notes", {}, "LastWordsProbe");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_TRUE(Has(child.output, "Notes\n  note 7"));
    EXPECT_TRUE(Has(child.output,
                    "  note 9998\n  note 9999\n  \n  one line\n    and another, \\x1B[31min red\nModules\n"))
        << child.output;
}

TEST_F(CrashShow, TellsTheLastWords) {
    Configure("http://127.0.0.1:1/");
    Probe("message", {}, "LastWordsProbe");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_TRUE(Has(child.output,
                    "Crash keys\n  exception=Nothing could be loaded. (Server message 104)\tnames.txt is not "
                    "text. (Server message 103)\n"
                    "  exception_type=ZBase::Message\n  product=probe\n  run=7\n"))
        << child.output;
}

TEST_F(CrashShow, ListsNoFileOfDataAmongTheModules) {
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
TEST_F(CrashShow, NamesNoCodeAfterASymbolThatEndsBeforeIt) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    const std::string output = Crash({"show", OnlyDump()}).output;
    const std::string stack = output.substr(0, output.find("Crash keys\n"));
    EXPECT_TRUE(Has(stack, "\tlibc.so.6\t")) << stack;
    EXPECT_FALSE(Has(stack, "__libc_init_first")) << stack;
    EXPECT_TRUE(Has(stack, "__libc_start_main")) << stack;
}

TEST_F(CrashShow, OfAllThreadsTellsTheirNames) {
    Configure("http://127.0.0.1:1/");
    Probe("names", {}, "ConfinedProbe");
    const ChildResult all = Crash({"show", "--all", OnlyDump()});
    EXPECT_TRUE(Has(all.output, ", the\\x01first)\n")) << all.output;
    EXPECT_TRUE(Has(all.output, "\nThread 1 (")) << all.output;
    EXPECT_TRUE(Has(all.output, ", worker 7)\n  0\t"));
    EXPECT_FALSE(Has(Crash({"show", OnlyDump()}).output, "worker 7"));
}

TEST_F(CrashShow, OfWhatIsNoDumpFails) {
    std::ofstream(mFolder / "x.dmp") << "nothing";
    EXPECT_EQ(Crash({"show", mFolder / "x.dmp"}).exitCode, 1);
    EXPECT_EQ(Crash({"show", mFolder / "missing"}).exitCode, 1);
}

TEST_F(CrashShow, OfAnIncompleteDumpShowsWhatIsThereAndFails) {
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
TEST_F(CrashShow, NamesModulesWithoutControlCharacters) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    RenameInDump(OnlyDump(), "/CrashProbe", "/\x1B[2JProbe!");
    const ChildResult child = Crash({"show", OnlyDump()});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output.find('\x1B'), std::string::npos) << child.output;
    EXPECT_TRUE(Has(child.output, "\t\\x1B[2JProbe!\t")) << child.output;
    EXPECT_TRUE(Has(child.output, "/\\x1B[2JProbe!\n")) << child.output;
}

TEST_F(CrashShow, TellsThePathsOfModulesOfOneName) {
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

TEST_F(CrashShow, TellsAPathWithAQuote) {
    Configure("http://127.0.0.1:1/");
    Probe("null");
    RenameInDump(OnlyDump(), "/CrashProbe", "/Crash\"robe");
    const ChildResult child = Crash({"show", OnlyDump()});
    const std::string path = fs::path(test::ChildProgram("CrashProbe")).replace_filename("Crash\"robe");
    EXPECT_TRUE(Has(child.output, "  " + path + "\n")) << child.output;
}

TEST_F(CrashShow, OpensNoPipeThatADumpNames) {
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

}  // namespace
