#include <TestPlaces.h>
#include <unistd.h>
#include <csignal>

#include "tests/crash/CrashBench.h"

// Calls that a crashing process may no longer make, and variables that its caller must not control.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

using CrashRights = test::CrashBench;

TEST_F(CrashRights, DirectoryThatVanishedIsMadeAgain) {
    StartServer();
    Configure();
    EXPECT_EQ(Crash({"no-directory"}, {}, "CrashStormProbe").signal, SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1)["dump_directory"], mDumps.string() + " (" + mDumps.string() + ": made again)");
    EXPECT_TRUE(fs::exists(mDumps));
}

TEST_F(CrashRights, DirectoryThatIsClosedGivesWayToTheTemporaryOne) {
    StartServer();
    Configure();
    const fs::path temporary = mFolder / "temporary";
    fs::create_directory(temporary);
    for (const fs::path& folder : {mFolder, temporary}) fs::permissions(folder, fs::perms::all);
    // The tree may be in a directory that only its owner can read.
    const fs::path library(ZBASE_LIBRARY);
    fs::copy_file(library, mFolder / "libZBase.so.1");
    fs::copy_file(library.parent_path() / "zbase-crash-sender", mFolder / "zbase-crash-sender");
    EXPECT_EQ(Crash({"no-rights"}, {"TMPDIR=" + temporary.string(), "LD_LIBRARY_PATH=" + mFolder.string()},
                    "CrashStormProbe")
                  .signal,
              SIGSEGV);
    ASSERT_EQ(ReceivedDumps().size(), 1u);
    EXPECT_EQ(ReceivedKeys(1)["dump_directory"],
              temporary.string() + " (" + mDumps.string() + ": Permission denied)");
    EXPECT_TRUE(fs::is_empty(temporary));
    EXPECT_TRUE(LeftDumps().empty());
    fs::permissions(mDumps, fs::perms::owner_all);
}

TEST_F(CrashRights, ProgramWithTheRightsOfAnotherUserObeysNoVariable) {
    if (geteuid() != 0) GTEST_SKIP() << "only the superuser makes such a program";
    StartServer();
    Configure();
    fs::permissions(mFolder, fs::perms::all);
    const fs::path program = mFolder / "probe";
    fs::copy_file(test::ChildProgram("CrashStormProbe"), program);
    const std::vector<std::string> environment = {"ZENT_CRASH_CONFIG_FILE=" + Config(),
                                                  "ZENT_HOME_PATH=" + mFolder.string()};
    const auto run = [&] {
        return test::RunChild({"/usr/bin/env", "-C", "/", program, "nothing"}, environment);
    };
    EXPECT_EQ(run().output, "installed\n");
    ASSERT_EQ(chown(program.c_str(), 65534, 65534), 0);
    ASSERT_EQ(chmod(program.c_str(), 06755), 0);
    const ChildResult child = run();
    if (child.output.empty()) GTEST_SKIP() << "programs have no such rights here";
    EXPECT_EQ(child.output, "other rights\n");
    EXPECT_EQ(child.exitCode, 96);  // no handler
}

}  // namespace
