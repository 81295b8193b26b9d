// ConfinedProbe KIND: installs the crash handler and crashes where ptrace is not permitted or /proc is
// missing, or in a host that handles faults itself. It ends itself after a minute, so that a hang is noticed.

#include <Base/ZBase.h>

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pthread.h>
#include <stddef.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>

#include "StackOverflow.h"
#include "tests/support/RefusedCalls.h"

namespace {

char* volatile gPage = nullptr;
void* volatile gNull = nullptr;

[[gnu::noipa]] void WriteToNull() {
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

void StartNamedThread(const char* name) {
    static int sReady[2];
    if (pipe(sReady) != 0) _exit(94);
    std::thread([name] {
        pthread_setname_np(pthread_self(), name);
        if (write(sReady[1], "", 1) != 1) _exit(94);
        pause();
    }).detach();
    char ready = 0;
    if (read(sReady[0], &ready, 1) != 1) _exit(94);
}

// These calls get the result `answer`.
void ForbidLooking(unsigned int answer) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_ptrace, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_process_vm_readv, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, answer),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{sizeof program / sizeof *program, program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0)
        _exit(77);
}

void CrashWithoutPtrace() {
    StartNamedThread("another one");
    ForbidLooking(SECCOMP_RET_ERRNO | EPERM);
    WriteToNull();
}

void CrashWherePtraceKills() {
    ForbidLooking(SECCOMP_RET_KILL_PROCESS);
    WriteToNull();
}

void OverflowWithoutPtrace() {
    ForbidLooking(SECCOMP_RET_ERRNO | EPERM);
    Overflow(0);
}

void DumpWithoutPtrace() {
    ForbidLooking(SECCOMP_RET_ERRNO | EPERM);
    std::printf("%d\n", ZBase::CreateDump());
}

void HideProc() {
    if (!test::HideProc()) _exit(77);
}

void CrashWithoutProc() {
    StartNamedThread("another one");
    HideProc();
    WriteToNull();
}

[[gnu::noipa]] void WorkOnAnotherThread() {
    WriteToNull();
    asm volatile("");
}

void CrashOnAnotherThreadWithoutProc() {
    HideProc();
    std::thread(WorkOnAnotherThread).join();
}

void OverflowWithoutProc() {
    HideProc();
    Overflow(0);
}

void DumpWithoutProc() {
    HideProc();
    std::printf("%d\n", ZBase::CreateDump());
}

[[gnu::noipa]] void RunOnOwnStack() {
    WriteToNull();
    asm volatile("");
}

void OverflowOwnStack() {
    Overflow(0);
}

// A fiber's stack is neither the thread's nor known to the loader. There is a guard below it.
void RunFiberWithoutProc(void (*work)()) {
    constexpr std::size_t kSize = 1 << 20;
    constexpr std::size_t kGuard = 1 << 16;
    static ucontext_t sFiber;
    static ucontext_t sCaller;
    getcontext(&sFiber);
    char* const room =
        static_cast<char*>(mmap(nullptr, kSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    mprotect(room, kGuard, PROT_NONE);
    sFiber.uc_stack.ss_sp = room + kGuard;
    sFiber.uc_stack.ss_size = kSize - kGuard;
    sFiber.uc_link = &sCaller;
    makecontext(&sFiber, work, 0);
    HideProc();
    swapcontext(&sCaller, &sFiber);
}

void CrashOnOwnStackWithoutProc() {
    RunFiberWithoutProc(RunOnOwnStack);
}

void OverflowOwnStackWithoutProc() {
    RunFiberWithoutProc(OverflowOwnStack);
}

// It is larger than what is dumped of a stack.
void OverflowALargeStackWithoutProc() {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, std::size_t{64} << 20);
    pthread_t thread{};
    HideProc();
    const auto overflow = [](void*) -> void* {
        ZBase::InstallCrashStack();
        Overflow(0);
        return nullptr;
    };
    if (pthread_create(&thread, &attributes, overflow, nullptr) == 0) pthread_join(thread, nullptr);
}

// Its children are in a namespace that it is not in itself.
void CrashBesideANewNamespace() {
    if (unshare(CLONE_NEWPID) != 0) _exit(77);
    WriteToNull();
}

// Its name is relative to another directory.
void CrashElsewhereWithoutProc() {
    HideProc();
    if (chdir("/") != 0) _exit(94);
    WriteToNull();
}

// Runs as the first process of a namespace, in which /proc shows the numbers of another one. Prints by which
// signal it ended, or its exit code.
void BeFirstProcess(void (*crash)()) {
    if (unshare(CLONE_NEWPID) != 0) _exit(77);
    const pid_t child = fork();
    if (child == 0) {
        alarm(60);
        crash();
        _exit(94);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) std::printf("signal %d\n", WTERMSIG(status));
    if (WIFEXITED(status)) std::printf("exit %d\n", WEXITSTATUS(status));
}

void CrashAsFirstProcess() {
    BeFirstProcess([] {
        StartNamedThread("another one");
        WriteToNull();
    });
}

// The system ends a first process by no signal that it has not handled.
// By the time its dump is written the page may be written to.
void CrashOnceAsFirstProcess() {
    BeFirstProcess([] {
        gPage = static_cast<char*>(mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        std::thread([] {
            for (;;) {
                usleep(2000);
                mprotect(gPage, 4096, PROT_READ | PROT_WRITE);
            }
        }).detach();
        *gPage = 1;
    });
}

void AbortAsFirstProcess() {
    BeFirstProcess(std::abort);
}

void BeSentAbortAsFirstProcess() {
    BeFirstProcess([] { kill(getpid(), SIGABRT); });
}

// Each dump finds another name.
void DumpTwiceWithoutRandomNumbers() {
    const unsigned int absent = ENOSYS;
    if (!test::RefuseCalls({SYS_getrandom}, absent)) _exit(77);
    std::printf("%d\n", ZBase::CreateDump());
    std::printf("%d\n", ZBase::CreateDump());
    std::fflush(stdout);
    WriteToNull();
}

// The parent traces the crashing thread, as a debugger does, and passes all signals on.
void CrashTraced() {
    int go[2];
    if (pipe(go) != 0) _exit(94);
    const pid_t child = fork();
    if (child == 0) {
        char ready = 0;
        alarm(60);  // the parent may not be let
        StartNamedThread("another one");
        if (read(go[0], &ready, 1) == 1) WriteToNull();
        _exit(94);
    }
    if (ptrace(PTRACE_SEIZE, child, nullptr, nullptr) != 0 || write(go[1], "", 1) != 1) _exit(77);
    int status = 0;
    while (waitpid(child, &status, 0) == child && WIFSTOPPED(status))
        ptrace(PTRACE_CONT, child, nullptr, reinterpret_cast<void*>(static_cast<long>(WSTOPSIG(status))));
    std::printf("%d\n", WIFSIGNALED(status) ? WTERMSIG(status) : 0);
}

void CrashBesideNamedThread() {
    pthread_setname_np(pthread_self(),
                       "the\x01"
                       "first");
    StartNamedThread("worker 7");
    WriteToNull();
}

// A host with a run-time of its own: its null pointers continue at a known address, and its pages are made
// accessible at the first access.

[[gnu::noipa]] int ReadFrom(const int* place) {
    int value = 0;
    asm volatile(
        "mov (%1), %0\n\t"
        "jmp 1f\n"
        "zbase_probe_recovered:\n\t"
        "mov $-1, %0\n"
        "1:"
        : "=&r"(value)
        : "r"(place));
    return value;
}
extern "C" char zbase_probe_recovered[];

void DealWithFault(int signal, siginfo_t* information, void* context) {
    auto* const address = static_cast<char*>(information->si_addr);
    greg_t& place = static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP];
    const auto reader = reinterpret_cast<greg_t>(&ReadFrom);
    if (gPage != nullptr && address >= gPage && address < gPage + 4096) {
        mprotect(gPage, 4096, PROT_READ | PROT_WRITE);
    } else if (place >= reader && place < reader + 64) {
        place = reinterpret_cast<greg_t>(zbase_probe_recovered);
    } else {  // a fault that is not its own
        std::signal(signal, SIG_DFL);
    }
}

// This one returns without handling anything.
void DealWithNothing(int) {}

void RunHost() {
    gPage = static_cast<char*>(mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    int recovered = 0;
    for (int i = 0; i != 10'000; ++i) recovered += ReadFrom(nullptr) == -1;
    int written = 0;
    for (int i = 0; i != 5'000; ++i) {
        mprotect(gPage, 4096, PROT_READ);
        *gPage = 1;
        written += *gPage;
    }
    std::printf("%d %d\n", recovered, written);
    std::fflush(stdout);
}

void RunHostAndCrash() {
    RunHost();
    WriteToNull();
}

void InstallHostHandler(const char* kind) {
    struct sigaction action {};
    action.sa_sigaction = DealWithFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    if (std::string(kind) == "idle-host") {
        action.sa_handler = DealWithNothing;
        action.sa_flags = 0;
    }
    sigaction(SIGSEGV, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
    const std::map<std::string, void (*)()> kinds = {
        {"no-ptrace", CrashWithoutPtrace},
        {"no-ptrace-overflow", OverflowWithoutPtrace},
        {"no-ptrace-dump", DumpWithoutPtrace},
        {"no-random", DumpTwiceWithoutRandomNumbers},
        {"ptrace-kills", CrashWherePtraceKills},
        {"traced", CrashTraced},
        {"no-proc", CrashWithoutProc},
        {"no-proc-thread", CrashOnAnotherThreadWithoutProc},
        {"no-proc-overflow", OverflowWithoutProc},
        {"no-proc-dump", DumpWithoutProc},
        {"no-proc-fiber", CrashOnOwnStackWithoutProc},
        {"no-proc-fiber-overflow", OverflowOwnStackWithoutProc},
        {"no-proc-large-overflow", OverflowALargeStackWithoutProc},
        {"no-proc-elsewhere", CrashElsewhereWithoutProc},
        {"before-first", CrashBesideANewNamespace},
        {"first", CrashAsFirstProcess},
        {"first-once", CrashOnceAsFirstProcess},
        {"first-abort", AbortAsFirstProcess},
        {"first-sent-abort", BeSentAbortAsFirstProcess},
        {"names", CrashBesideNamedThread},
        {"host", RunHost},
        {"host-crash", RunHostAndCrash},
        {"idle-host", WriteToNull},
        {"host-abort", std::abort},
    };
    const auto kind = kinds.find(argc > 1 ? argv[1] : "");
    if (kind == kinds.end()) return 97;
    if (kind->first == "no-proc-elsewhere" && *argv[0] == '/') {  // once more, by a relative name
        const std::string folder(argv[0], std::string(argv[0]).rfind('/'));
        if (chdir(folder.c_str()) == 0) execl("./ConfinedProbe", "./ConfinedProbe", argv[1], nullptr);
        return 95;
    }
    alarm(60);
    if (kind->first.find("host") != std::string::npos) InstallHostHandler(argv[1]);
    if (!ZBase::InstallCrashHandler()) return 96;
    kind->second();
    return 0;
}
