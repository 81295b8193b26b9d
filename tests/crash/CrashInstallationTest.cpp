#include <Base/ZBase.h>

#include <unistd.h>

#include "tests/crash/CrashBench.h"

// What prevents the handler, in other processes: CrashProbe ends with 96 when it is not installed.

namespace {

using ZBase::CrashConfigTable;

class CrashInstallation : public test::CrashBench {
protected:
    bool Installs(const std::string& config) {
        WriteConfig(config);
        return Crash({"none"}).exitCode == 0;
    }
    std::string Servers() const { return "[Config]\nServerURL=http://a/\nServerProdURL=http://b/\n"; }
    std::string With(const std::string& settings) const {
        return Servers() + "dump_path=" + mDumps.string() + "\n" + settings;
    }
};

TEST_F(CrashInstallation, NeedsNoEnableButObeysIt) {
    EXPECT_TRUE(Installs(With("")));
    EXPECT_TRUE(Installs(With("enable=true\n")));
    EXPECT_TRUE(Installs(With("enable=TRUE\n")));
    EXPECT_FALSE(Installs(With("enable=True\n")));
    EXPECT_FALSE(Installs(With("enable=\n")));
    EXPECT_TRUE(Installs(With("enable =false\n")));
}

TEST_F(CrashInstallation, EmptyServerCountsAsPresent) {
    EXPECT_TRUE(Installs("[Config]\nServerURL=\nServerProdURL=\ndump_path=" + mDumps.string()));
}

TEST_F(CrashInstallation, WithoutServersFails) {
    for (const char* content : {"", "# nothing\n# but comments\n"}) {
        EXPECT_FALSE(Installs(content));
        CrashConfigTable settings;
        CrashConfigTable crashKeys;
        EXPECT_TRUE(ZBase::ReadCrashConfig(Config().c_str(), settings, crashKeys));
    }
    EXPECT_FALSE(Installs("[Config]\nServerURL=http://a/\n"));
    EXPECT_FALSE(Installs("[Config]\nServerProdURL=http://a/\n"));
}

TEST_F(CrashInstallation, WithoutFileFailsThoughThereAreOtherPlaces) {
    WriteConfig(With(""));
    const std::string folder = mFolder.string();
    EXPECT_EQ(Crash({"none"}, {"ZENT_CRASH_CONFIG_FILE=/no/such/file", "ZENT_HOME_PATH=" + folder,
                               "PROBE_FOLDER=" + folder})
                  .exitCode,
              96);
}

TEST_F(CrashInstallation, TakesTheFileOfTheCurrentDirectoryWhenTheHomeHasNone) {
    WriteConfig(With(""));
    const std::vector<std::string> places = {"ZENT_CRASH_CONFIG_FILE", "ZENT_HOME_PATH=/tmp/no-home"};
    EXPECT_EQ(Crash({"none"}, places).exitCode, 96);
    std::vector<std::string> within = places;
    within.push_back("PROBE_FOLDER=" + mFolder.string());
    EXPECT_EQ(Crash({"none"}, within).exitCode, 0);
}

TEST_F(CrashInstallation, DirectoryInPlaceOfTheFileFails) {
    std::filesystem::create_directory(mFolder / "crash_report.ini");
    EXPECT_EQ(Crash({"none"}).exitCode, 96);
}

TEST_F(CrashInstallation, UnreadableFileFails) {
    using std::filesystem::perms;
    WriteConfig(With(""));
    std::filesystem::permissions(mFolder, perms::all);
    const std::string user = test::OrdinaryUser();
    std::filesystem::permissions(Config(), perms::owner_read | perms::group_read | perms::others_read);
    EXPECT_EQ(Crash({"none"}, {"PROBE_USER=" + user}).exitCode, 0);
    std::filesystem::permissions(Config(), perms::none);
    EXPECT_EQ(Crash({"none"}, {"PROBE_USER=" + user}).exitCode, 96);
}

TEST_F(CrashInstallation, MakesOnlyTheLastLevelOfTheDumpPath) {
    EXPECT_FALSE(Installs(Servers() + "dump_path=" + (mFolder / "a/b").string()));
    EXPECT_FALSE(std::filesystem::exists(mFolder / "a"));
    EXPECT_TRUE(Installs(Servers() + "dump_path=" + (mFolder / "a").string()));
    EXPECT_EQ(std::filesystem::status(mFolder / "a").permissions(), std::filesystem::perms::owner_all);
}

TEST_F(CrashInstallation, EmptyDumpPathFails) {
    EXPECT_FALSE(Installs(Servers() + "dump_path=\n"));
}

}  // namespace
