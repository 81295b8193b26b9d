// TightProcess, loaded in front of a test program by LD_PRELOAD: takes from the process, once it has its
// libraries, what ZBASE_TIGHT names, separated by commas. The programs that the process starts have the same
// happen to them.
//
//   descriptors         all descriptors below the limit are in use; whoever raises the limit has more
//   address_space=MIB   that many MiB of addresses are left
//   refused=ERRNO       the calls of the system that a program can do without fail with this number
#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

constexpr rlim_t kDescriptors = 64;

void TakeDescriptors() {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = kDescriptors;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int null = open("/dev/null", O_RDONLY | O_CLOEXEC);
    while (fcntl(null, F_DUPFD_CLOEXEC, 0) >= 0) {
    }
}

void TakeAddresses(rlim_t left) {
    unsigned long pages = 0;
    FILE* const file = std::fopen("/proc/self/statm", "re");
    if (file == nullptr || std::fscanf(file, "%lu", &pages) != 1) std::abort();
    std::fclose(file);
    rlimit limit{};
    getrlimit(RLIMIT_AS, &limit);
    limit.rlim_cur = pages * static_cast<rlim_t>(getpagesize()) + left;
    setrlimit(RLIMIT_AS, &limit);
}

// What a program with threads, files, children and sockets can't do without.
constexpr unsigned int kNeeded[] = {
    SYS_read,
    SYS_write,
    SYS_readv,
    SYS_writev,
    SYS_pread64,
    SYS_pwrite64,
    SYS_open,
    SYS_openat,
    SYS_creat,
    SYS_close,
    SYS_close_range,
    SYS_stat,
    SYS_lstat,
    SYS_fstat,
    SYS_newfstatat,
    SYS_lseek,
    SYS_access,
    SYS_faccessat,
    SYS_getdents64,
    SYS_getdents,
    SYS_mkdir,
    SYS_mkdirat,
    SYS_rmdir,
    SYS_unlink,
    SYS_unlinkat,
    SYS_rename,
    SYS_renameat,
    SYS_link,
    SYS_linkat,
    SYS_symlink,
    SYS_symlinkat,
    SYS_readlink,
    SYS_readlinkat,
    SYS_chmod,
    SYS_fchmod,
    SYS_fchmodat,
    SYS_chown,
    SYS_fchown,
    SYS_fchownat,
    SYS_umask,
    SYS_getcwd,
    SYS_chdir,
    SYS_fchdir,
    SYS_fsync,
    SYS_fdatasync,
    SYS_truncate,
    SYS_ftruncate,
    SYS_flock,
    SYS_utimensat,
    SYS_statfs,
    SYS_fstatfs,
    SYS_mknod,
    SYS_mknodat,
    SYS_dup,
    SYS_dup2,
    SYS_dup3,
    SYS_fcntl,
    SYS_ioctl,
    SYS_pipe,
    SYS_pipe2,
    SYS_poll,
    SYS_ppoll,
    SYS_select,
    SYS_pselect6,
    SYS_epoll_create1,
    SYS_epoll_ctl,
    SYS_epoll_wait,
    SYS_epoll_pwait,
    SYS_eventfd2,
    SYS_mmap,
    SYS_munmap,
    SYS_mprotect,
    SYS_mremap,
    SYS_madvise,
    SYS_brk,
    SYS_clone,
    SYS_fork,
    SYS_vfork,
    SYS_execve,
    SYS_exit,
    SYS_exit_group,
    SYS_wait4,
    SYS_waitid,
    SYS_futex,
    SYS_set_robust_list,
    SYS_set_tid_address,
    SYS_arch_prctl,
    SYS_prctl,
    SYS_gettid,
    SYS_getpid,
    SYS_getppid,
    SYS_getpgrp,
    SYS_setpgid,
    SYS_setsid,
    SYS_getsid,
    SYS_getpgid,
    SYS_getuid,
    SYS_geteuid,
    SYS_getgid,
    SYS_getegid,
    SYS_getgroups,
    SYS_setuid,
    SYS_setgid,
    SYS_setreuid,
    SYS_setregid,
    SYS_setresuid,
    SYS_setresgid,
    SYS_getresuid,
    SYS_getresgid,
    SYS_setgroups,
    SYS_capget,
    SYS_capset,
    SYS_rt_sigaction,
    SYS_rt_sigprocmask,
    SYS_rt_sigreturn,
    SYS_rt_sigpending,
    SYS_rt_sigsuspend,
    SYS_rt_sigtimedwait,
    SYS_signalfd4,
    SYS_rt_sigqueueinfo,
    SYS_rt_tgsigqueueinfo,
    SYS_sigaltstack,
    SYS_kill,
    SYS_tkill,
    SYS_tgkill,
    SYS_pause,
    SYS_alarm,
    SYS_setitimer,
    SYS_restart_syscall,
    SYS_nanosleep,
    SYS_clock_nanosleep,
    SYS_clock_gettime,
    SYS_clock_getres,
    SYS_gettimeofday,
    SYS_time,
    SYS_times,
    SYS_sched_yield,
    SYS_uname,
    SYS_getrandom,  // without it the C library ends the process, and no connection is encrypted
    SYS_getrlimit,
    SYS_setrlimit,
    SYS_prlimit64,
    SYS_getrusage,
    SYS_chroot,
    SYS_socket,
    SYS_socketpair,
    SYS_bind,
    SYS_listen,
    SYS_accept,
    SYS_accept4,
    SYS_connect,
    SYS_shutdown,
    SYS_sendto,
    SYS_recvfrom,
    SYS_sendmsg,
    SYS_recvmsg,
    SYS_sendmmsg,
    SYS_recvmmsg,
    SYS_setsockopt,
    SYS_getsockopt,
    SYS_getsockname,
    SYS_getpeername,
    SYS_seccomp,
    SYS_rseq,
};

void RefuseTheRest(unsigned int error) {
    constexpr std::size_t count = sizeof kNeeded / sizeof *kNeeded;
    static sock_filter program[count * 2 + 16];
    std::size_t length = 0;
    const auto add = [&](const sock_filter& line) { program[length++] = line; };
    add(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)));
    for (const unsigned int call : kNeeded) {
        add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    }
    // The C library, and the C++ library where it copies files, take another way only where these do not
    // exist.
    for (const unsigned int call :
         std::initializer_list<unsigned int>{SYS_clone3, SYS_sendfile, SYS_copy_file_range}) {
        add(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1));
        add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS));
    }
    add(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | (error & SECCOMP_RET_DATA)));
    const sock_fprog filter{static_cast<unsigned short>(length), program};
    // Root needs no promise to gain no rights, which the programs of another user would suffer from.
    if (prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0) == 0) return;
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter, 0, 0);
}

unsigned long NumberAfter(const char* text, const char* name) {
    const char* const place = std::strstr(text, name);
    return place == nullptr ? 0 : std::strtoul(place + std::strlen(name), nullptr, 10);
}

[[gnu::constructor]] void Tighten() {
    const char* const what = std::getenv("ZBASE_TIGHT");
    if (what == nullptr) return;
    if (std::strstr(what, "descriptors") != nullptr) TakeDescriptors();
    if (const unsigned long mib = NumberAfter(what, "address_space=")) TakeAddresses(mib << 20);
    if (const unsigned long error = NumberAfter(what, "refused="))
        RefuseTheRest(static_cast<unsigned int>(error));
    errno = 0;
}

}  // namespace
