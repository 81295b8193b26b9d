#include <Base/ZBase.h>
#include <Base/crash/detail/CrashContract.h>
#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "tests/support/BackgroundChild.h"
#include "tests/support/ChildProcess.h"
#include "tests/tools/linux/CrashCommandBench.h"

// zbase crash check and test, as an operator uses them.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashCommand : public test::CrashCommandBench {};

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

TEST_F(CrashCommand, TestTellsThatTheReportDoesNotArrive) {
    Configure("http://127.0.0.1:1/");
    const ChildResult child = Crash({"test"});
    EXPECT_EQ(child.exitCode, 1);
    EXPECT_TRUE(Has(child.output, "did not arrive at http://127.0.0.1:1/"));
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
    EXPECT_TRUE(Has(
        child.output,
        "the most dumps of one user that are kept; 0: any number (no number from 0 to 1000000: 50 counts)"));
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

TEST_F(CrashCommand, TestFailsWhenNoReportArrivesThoughDumpsStay) {
    Configure("http://127.0.0.1:1/", "keep_dump_file=true\n");
    EXPECT_EQ(Crash({"test"}).exitCode, 1);
    test::BackgroundChild server({ZBASE_CRASH_RECEIVER, mFolder / "received"});
    Configure(server.ReadLine(), "keep_dump_file=true\n");
    const ChildResult child = Crash({"test"});
    EXPECT_EQ(child.exitCode, 0) << child.output;
    EXPECT_TRUE(Has(child.output, "its report arrived at http://127.0.0.1:")) << child.output;
}

TEST_F(CrashCommand, TestsWithAReceiverOfItsOwn) {
    const ChildResult child = Crash({"test", "--local"});
    EXPECT_EQ(child.exitCode, 0) << child.errors << child.output;
    EXPECT_TRUE(Has(child.output, "A dump was written, and its report arrived at http://127.0.0.1:"));
    EXPECT_TRUE(Has(child.output, "product=zbase"));
    EXPECT_TRUE(Has(child.output, "zbase_crash_test=1"));
}

}  // namespace
