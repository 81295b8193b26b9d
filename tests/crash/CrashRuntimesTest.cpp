#include <TestPlaces.h>

#include <csignal>

#include "tests/crash/CrashBench.h"

// Programs of other languages whose run-times handle faults; each is skipped where its language is not
// installed.

namespace {

namespace fs = std::filesystem;
using test::ChildResult;

class CrashRuntimes : public test::CrashBench {
protected:
    static bool Has(const std::string& program, const std::string& version) {
        return test::RunChild({"/usr/bin/env", program, version}).exitCode == 0;
    }
    static std::string Source(const char* name) {
        return fs::path(ZBASE_SOURCE_DIR) / "tests/crash/runtimes" / name;
    }
    static std::string Guest() { return fs::path(ZBASE_MODULES_DIR) / "libRuntimeGuest.so"; }

    ChildResult Run(const std::vector<std::string>& arguments,
                    const std::vector<std::string>& environment = {}) const {
        std::vector<std::string> command = {"/usr/bin/env", "--chdir=" + mFolder.string(),
                                            "ZENT_CRASH_CONFIG_FILE=" + Config()};
        command.insert(command.end(), environment.begin(), environment.end());
        command.insert(command.end(), arguments.begin(), arguments.end());
        return test::RunChild(command);
    }
};

TEST_F(CrashRuntimes, GoRecoversFromNullPointersAndACrashOfItsCodeInCIsReported) {
    if (!Has("go", "version") || !Has("gcc", "--version")) GTEST_SKIP() << "no go here";
    const std::string home = "HOME=" + mFolder.string();
    const ChildResult build = Run({"go", "build", "-o", "host", Source("Host.go")},
                                  {home, "GOCACHE=" + (mFolder / "cache").string(), "GO111MODULE=off"});
    ASSERT_EQ(build.exitCode, 0) << build.errors;
    StartServer();
    Configure("chain=first\n");
    const ChildResult well = Run({"./host", Guest()});
    EXPECT_EQ(well.output, "1\n4000\n") << well.errors;
    EXPECT_EQ(well.exitCode, 0);
    EXPECT_TRUE(ReceivedDumps().empty());

    const ChildResult crash = Run({"./host", Guest(), "crash"}, {"GOTRACEBACK=crash"});
    EXPECT_EQ(crash.output, "1\n4000\n");
    EXPECT_EQ(crash.signal, SIGABRT) << crash.errors;
    EXPECT_EQ(ReceivedDumps().size(), 1u) << crash.errors;
    EXPECT_TRUE(LeftDumps().empty());
}

TEST_F(CrashRuntimes, JavaCatchesNullPointersAndOverflowsAndACrashOfItsNativeCodeIsReported) {
    if (!Has("java", "-version") || !Has("javac", "-version")) GTEST_SKIP() << "no java here";
    const std::vector<std::string> java = {"java", "-Xmx64m",
                                           "-XX:ErrorFile=" + (mFolder / "error").string()};
    const auto run = [&](std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), java.begin(), java.end());
        return Run(arguments);
    };
    StartServer();
    Configure("chain=first\n");
    const ChildResult build = Run({"javac", "-d", ".", Source("Host.java")});
    ASSERT_EQ(build.exitCode, 0) << build.errors;
    const ChildResult well = run({"-cp", ".", "Host", Guest()});
    EXPECT_EQ(well.output, "1\n50000\noverflow\n") << well.errors;
    EXPECT_EQ(well.exitCode, 0);
    EXPECT_TRUE(ReceivedDumps().empty());

    const ChildResult crash = run({"-cp", ".", "Host", Guest(), "crash"});
    EXPECT_EQ(crash.output.rfind("1\n50000\noverflow\n", 0), 0u) << crash.output;
    EXPECT_EQ(crash.signal, SIGABRT);
    EXPECT_EQ(ReceivedDumps().size(), 1u) << crash.output;
    EXPECT_TRUE(LeftDumps().empty());
}

// A heap other than the C library's, preloaded.
TEST_F(CrashRuntimes, AProgramWithTcmallocIsReportedAsAnyOther) {
    constexpr char kTcmalloc[] = "/usr/lib/x86_64-linux-gnu/libtcmalloc_minimal.so.4";
    if (!fs::exists(kTcmalloc)) GTEST_SKIP() << "no tcmalloc here";
    const std::string preload = std::string("LD_PRELOAD=") + kTcmalloc;
    StartServer();
    Configure();
    std::size_t reports = 0;
    for (const char* kind : {"threads", "vfork", "beside-keys", "blocked"}) {
        const ChildResult child = Crash({kind, "4"}, {preload}, "CrashStormProbe");
        EXPECT_NE(child.signal, 0) << kind << child.errors;
        EXPECT_NE(child.signal, SIGALRM) << kind;
        EXPECT_GT(ReceivedDumps().size(), reports) << kind;
        reports = ReceivedDumps().size();
        EXPECT_TRUE(LeftDumps().empty()) << kind;
    }
    EXPECT_EQ(Crash({"captured-heap", "300"}, {preload}, "CrashStormProbe").output, "0 empty\n");
    EXPECT_EQ(ReceivedDumps().size(), ++reports);
    for (const char* kind : {"message", "nested"}) {
        EXPECT_EQ(Crash({kind}, {preload}, "LastWordsProbe").signal, SIGABRT) << kind;
        EXPECT_EQ(ReceivedDumps().size(), ++reports) << kind;
    }
    EXPECT_EQ(ReceivedKeys(static_cast<int>(reports)).at("exception"), "the outer one");
}

}  // namespace
