#pragma once

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstddef>
#include <initializer_list>
#include <vector>

namespace test {

/// From now on these system calls of this process fail with an error, as in a sandbox. False if the kernel
/// does not support that.
inline bool RefuseCalls(std::initializer_list<unsigned int> calls, unsigned int error) {
    std::vector<sock_filter> program;
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const unsigned int call : calls) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (error & SECCOMP_RET_DATA)));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) == 0;
}

/// From now on this process has no /proc: in a namespace of its own something else hides it. False if it may
/// not do that.
inline bool HideProc() {
    return unshare(CLONE_NEWNS) == 0 && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           mount("none", "/proc", "tmpfs", 0, nullptr) == 0;
}

/// The result of `body()`, at most 250, in a child; -1 if it does not end within a minute.
template <class Body>
int InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// The result of a body in a child where the system does not support the test.
inline constexpr int kNotAllowed = 250;

}  // namespace test
