#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <string>
#include <thread>

#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

// The result does not depend on a free descriptor.

namespace {

std::uint64_t Id(pid_t process) {
    return static_cast<std::uint64_t>(process);
}

bool IsAlive(pid_t process) {
    return ZBase::IsProcessAlive(Id(process));
}

// Ends the process and leaves it a zombie.
void Kill(pid_t process) {
    kill(process, SIGKILL);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(process), &info, WEXITED | WNOWAIT);
}

pid_t StartWaiting() {
    const pid_t process = fork();
    if (process == 0) {
        for (;;) pause();
    }
    return process;
}

// A number for the first wrong result; 0 if all are right. The parent of this process runs meanwhile.
int AnswersHere() {
    if (!IsAlive(getpid())) return 1;
    if (!IsAlive(getppid())) return 2;
    const pid_t child = StartWaiting();
    if (!IsAlive(child)) return 3;
    kill(child, SIGSTOP);
    siginfo_t info;
    waitid(P_PID, static_cast<id_t>(child), &info, WSTOPPED | WNOWAIT);
    if (!IsAlive(child)) return 4;
    Kill(child);
    if (kill(child, 0) != 0) return 5;  // the id is still in use
    if (IsAlive(child)) return 6;
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFSIGNALED(status)) return 7;  // the zombie was left to us
    if (IsAlive(child)) return 8;
    for (const std::uint64_t id : {0ull, 0x7FFFFFFFull, 0x80000000ull, 0xFFFFFFFFull})
        if (ZBase::IsProcessAlive(id)) return 9;
    if (!ZBase::IsProcessAlive(Id(getpid()) | 0x100000000)) return 10;
    return 0;
}

TEST(ProcessAliveWithoutADescriptor, WhenNoneIsLeftToThisProcess) {
    EXPECT_EQ(test::InChild([] {
                  rlimit limit{};
                  getrlimit(RLIMIT_NOFILE, &limit);
                  limit.rlim_cur = 16;
                  setrlimit(RLIMIT_NOFILE, &limit);
                  while (dup(STDERR_FILENO) >= 0) {
                  }
                  return errno == EMFILE ? AnswersHere() : 100;
              }),
              0);
}

TEST(ProcessAliveWithoutADescriptor, WhenThisProcessMayHaveNone) {
    EXPECT_EQ(test::InChild([] {
                  const rlimit none{};
                  setrlimit(RLIMIT_NOFILE, &none);
                  return AnswersHere();
              }),
              0);
}

TEST(ProcessAliveWithoutADescriptor, WhenASandboxRefuses) {
    for (const int error : {EPERM, ENOSYS, ENFILE, EMFILE, EACCES, ENOMEM}) {
        const int answers = test::InChild([error] {
            return test::RefuseCalls({SYS_pidfd_open}, static_cast<unsigned int>(error)) ? AnswersHere()
                                                                                         : test::kNotAllowed;
        });
        if (answers == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
        EXPECT_EQ(answers, 0) << error;
    }
}

TEST(ProcessAliveWithoutADescriptor, WhenASandboxGivesOneAndRefusesToWait) {
    const int answers = test::InChild([] {
        return test::RefuseCalls({SYS_poll, SYS_ppoll}, EPERM) ? AnswersHere() : test::kNotAllowed;
    });
    if (answers == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(answers, 0);
}

TEST(ProcessAliveWithoutADescriptor, WhenTheProcessListIsNotTold) {
    const int answers = test::InChild([] {
        return test::RefuseCalls({SYS_pidfd_open, SYS_openat, SYS_readlink, SYS_readlinkat, SYS_newfstatat},
                                 EPERM)
                   ? AnswersHere()
                   : test::kNotAllowed;
    });
    if (answers == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(answers, 0);
}

// The first thread of a process may end before the others.
TEST(ProcessAliveWithoutADescriptor, WhileAnyOfItsThreadsRuns) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "the sanitizer starts no threads in a child";
    const pid_t process = fork();
    if (process == 0) {
        std::thread([] {
            for (;;) pause();
        }).detach();
        syscall(SYS_exit, 0);
    }
    // Until the first thread has ended.
    const std::string folder = "/proc/" + std::to_string(process);
    for (char path[64]; readlink((folder + "/cwd").c_str(), path, sizeof path) >= 0;) usleep(1000);
    const int alive = test::InChild([process] {
        if (!test::RefuseCalls({SYS_pidfd_open}, EPERM)) return test::kNotAllowed;
        return IsAlive(process) ? 1 : 2;
    });
    Kill(process);
    const int ended = test::InChild([process] {
        if (!test::RefuseCalls({SYS_pidfd_open}, EPERM)) return test::kNotAllowed;
        return IsAlive(process) ? 1 : 2;
    });
    waitpid(process, nullptr, 0);
    if (alive == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(alive, 1);
    EXPECT_EQ(ended, 2);
}

TEST(ProcessAliveWithoutADescriptor, NotForTheIdOfASecondThread) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "the sanitizer starts no threads in a child";
    const int answer = test::InChild([] {
        if (!test::RefuseCalls({SYS_pidfd_open}, EPERM)) return test::kNotAllowed;
        bool alive = true;
        std::thread([&alive] { alive = IsAlive(gettid()); }).join();
        return alive ? 1 : 2;
    });
    if (answer == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(answer, 2);
}

}  // namespace
