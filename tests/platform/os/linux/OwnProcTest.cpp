#include <Base/diagnostics/AllStacks.h>
#include <Base/platform/ProcessInformation.h>
#include <Base/platform/os/linux/processes/OwnProc.h>

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <string>

#include "tests/support/RefusedCalls.h"
#include "tests/support/TemporaryFile.h"

// /proc, where its ids are those of somebody else.

namespace {

/// The result of `body()` in the first process of a namespace, over which /proc stays that of the outer one.
template <class Body>
int InFirstProcess(Body body) {
    return test::InChild([&] {
        if (unshare(CLONE_NEWPID) != 0) return test::kNotAllowed;
        const pid_t first = fork();
        if (first == 0) _exit(body());
        int status = 0;
        return waitpid(first, &status, 0) == first && WIFEXITED(status) ? WEXITSTATUS(status) : 99;
    });
}

TEST(OwnProc, IsThereWhereItsIdsAreThoseOfTheProcess) {
    EXPECT_TRUE(ZBase::os::HasOwnProc());
}

TEST(OwnProc, IsNotThereWhereItIsHidden) {
    const int result = test::InChild([] {
        if (!test::HideProc()) return test::kNotAllowed;
        return ZBase::os::HasOwnProc() ? 1 : 0;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process hide /proc";
    EXPECT_EQ(result, 0);
}

TEST(OwnProc, IsNotThatOfAnotherNamespace) {
    const int result = InFirstProcess([] { return ZBase::os::HasOwnProc() ? 1 : 0; });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system gives no namespace";
    EXPECT_EQ(result, 0);
}

// The process that is asked for has the id of this one in the other namespace.
TEST(OwnProc, OfAnotherNamespaceGivesAProcessNoOthersName) {
    const pid_t mine = getpid();
    const int result = InFirstProcess([mine] {
        std::ofstream("/proc/sys/kernel/ns_last_pid") << mine - 1;
        const pid_t second = fork();
        if (second == 0) {
            pause();
            _exit(0);
        }
        const bool hasName = *ZBase::GetProcessName(static_cast<unsigned int>(second)).c_str() != 0;
        kill(second, SIGKILL);
        if (second != mine) return test::kNotAllowed;
        return hasName ? 1 : 0;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system gives no namespace, or no id that is chosen";
    EXPECT_EQ(result, 0);
}

TEST(OwnProc, OfAnotherNamespaceNamesNoThreads) {
    const test::TemporaryFile file;
    const int result = InFirstProcess([&] { return ZBase::DumpAllStacks(file.Path()) ? 0 : 1; });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system gives no namespace";
    EXPECT_EQ(result, 0);
    EXPECT_NE(file.Text().find("\nThread 1 \""), std::string::npos) << file.Text();
    EXPECT_NE(file.Text().find("Other threads are not known: No such file or directory"), std::string::npos)
        << file.Text();
}

// The last descriptor is the file's. The name of the thread is not told then.
TEST(OwnProc, OfAnotherNamespaceNamesNoThreadsWithoutADescriptorEither) {
    const test::TemporaryFile file;
    const int result = InFirstProcess([&] {
        const int lowest = dup(STDIN_FILENO);
        close(lowest);
        const rlimit limit{static_cast<rlim_t>(lowest) + 1, static_cast<rlim_t>(lowest) + 1};
        setrlimit(RLIMIT_NOFILE, &limit);
        return ZBase::DumpAllStacks(file.Path()) ? 0 : 1;
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system gives no namespace";
    EXPECT_EQ(result, 0);
    EXPECT_NE(file.Text().find("\nThread 1 \"\""), std::string::npos) << file.Text();
}

}  // namespace
