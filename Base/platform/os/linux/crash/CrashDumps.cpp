// The path of a crash. The crashed thread is in a signal handler; any lock may be held, the heap may be
// corrupt, its stack may be exhausted. So all that is needed is allocated when the handler is created:
//
// - an alternate stack for the thread, with a guard page;
// - address space and descriptors, which are released first, since the process may have none left;
// - the names of directories, and the parts of a report.
//
// The signal handlers are our own. Breakpad's would restore those of the host when a second thread crashes,
// which ends the process before the first one's report is out, and take a lock that a forked child finds
// held. The process ends in the handler, by the signal of its crash: after a return the fault might not
// recur, or another thread's signal come first.

#include <Base/platform/os/crash/CrashDumps.h>
#include <Base/platform/os/linux/crash/CrashChain.h>
#include <Base/platform/os/linux/crash/CrashEquipment.h>
#include <Base/platform/os/linux/crash/CrashStack.h>
#include <Base/platform/os/linux/crash/CrashTurns.h>
#include <Base/platform/os/linux/crash/DumpWriter.h>
#include <Base/platform/os/linux/faults/FaultSignals.h>
#include <Base/platform/os/linux/faults/FaultState.h>
#include <Base/platform/os/linux/files/AbsoluteDirectory.h>
#include <Base/platform/os/linux/processes/CancellationHeldBack.h>
#include <Base/platform/os/linux/processes/ProgramStart.h>
#include <Base/platform/os/linux/text/NativeText.h>

#include <client/linux/minidump_writer/dump_limit.h>
#include <client/linux/minidump_writer/linux_ptrace_dumper.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <new>

namespace ZBase::os {

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGABRT, SIGFPE, SIGILL, SIGBUS, SIGTRAP};

}  // namespace

constinit CrashEquipment gEquipment{};

class DumpHandler {
public:
    DumpHandler(const std::string& directory, DumpUser user, unsigned int megabytes)
        : mCrashes(directory, user, false, megabytes),
          mGuestCrashes(directory, user, false, megabytes),
          mDemands(directory, user, true, megabytes) {}

    CrashStack mCrashStack;
    DumpWriter mCrashes;
    DumpWriter mGuestCrashes;
    DumpWriter mDemands;
    DumpHandler* mpOlder = nullptr;  // owned
};

namespace {

void HandleCrash(int signal, siginfo_t* information, void* context);

struct sigaction CrashAction() {
    struct sigaction action {};
    action.sa_sigaction = HandleCrash;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigfillset(&action.sa_mask);
    return action;
}

void InstallHandlers() {
    if (gEquipment.isInstalled) return;
    const struct sigaction action = CrashAction();
    for (const int signal : kSignals) {
        sigaction(signal, nullptr, &gEquipment.before[signal]);
        sigaction(signal, &action, nullptr);
    }
    gEquipment.isInstalled = true;
}

// May run on the crashed thread, and in a guest, whose handlers are its own.
void RestoreHandlers() {
    for (const int signal : kSignals) sigaction(signal, &gEquipment.before[signal], nullptr);
    if (!IsGuest()) gEquipment.isInstalled = false;
}

// Some hosts save and restore handlers by `signal`, which drops SA_SIGINFO, so the other arguments are
// missing. The signal is sent again and arrives when its handler returns.
bool HasLostItsFlags(int signal) {
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0 || present.sa_sigaction != HandleCrash) return false;
    if ((present.sa_flags & SA_SIGINFO) != 0) return false;
    const struct sigaction action = CrashAction();
    sigaction(signal, &action, nullptr);
    return true;
}

void SendAgain(int signal, siginfo_t* information) {
    if (syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, information) != 0)
        syscall(SYS_tgkill, getpid(), gettid(), signal);
}

// No core of a process whose crash was handled, not even into a pipe.
void ForbidCore() {
    if (!IsGuest()) {
        prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
        return;
    }
    const rlimit tooSmall{1, 1};  // PR_SET_DUMPABLE belongs to the memory, which is shared
    setrlimit(RLIMIT_CORE, &tooSmall);
}

// Signals that are sent do not end the first process of a system or a container.
[[noreturn]] void EndBySignal(int signal, siginfo_t* information) {
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    SendAgain(signal, information);
    sigset_t mine;
    sigemptyset(&mine);
    sigaddset(&mine, signal);
    pthread_sigmask(SIG_UNBLOCK, &mine, nullptr);
    // What happened need not happen again, but the first process too ends by a fault that it does not handle.
    volatile std::uintptr_t nowhere = sizeof(int);
    if (signal == SIGSEGV && information->si_code > 0) *reinterpret_cast<volatile int*>(nowhere) = 0;
    _exit(128 + signal);  // the status that a shell shows
}

// To the previous handler, or to the system.
void PassOn(int signal, siginfo_t* information) {
    RestoreHandlers();
    // A fault recurs on return. A signal that was sent does not, nor a trap, which is after its instruction.
    if (information->si_code <= 0 || signal == SIGABRT || signal == SIGTRAP) SendAgain(signal, information);
}

// Runs on the crashed thread, on its alternate stack if it has one, with all signals blocked. No heap, no
// lock.
void HandleCrash(int signal, siginfo_t* information, void* context) {
    AllowMisalignment();
    const CancellationHeldBack heldBack;
    if (HasLostItsFlags(signal) || TranslateFault(signal, information, context)) return;
    // An abort never continues.
    if (gEquipment.asksEarlier && signal != SIGABRT &&
        AskEarlierHandler(gEquipment.before[signal], signal, information, context))
        return;
    DumpHandler* const handler = gEquipment.newest;
    if (handler == nullptr || !TakeCrash()) {
        WaitForCrash();
        return PassOn(signal, information);
    }
    const bool isGuest = IsGuest();
    gEquipment.reserve.LetGo(isGuest);
    DumpWriter& writer = isGuest ? handler->mGuestCrashes : handler->mCrashes;
    const bool endsHere = writer.WriteCrash(signal, information, context);
    if (endsHere) ForbidCore();
    if (isGuest || !endsHere) LeaveCrash();
    if (!endsHere) return PassOn(signal, information);
    EndBySignal(signal, information);
}

// The kernel ends a process at once if it faults with the signal blocked. Threads inherit the signal mask.
void UnblockFaults() {
    sigset_t faults;
    sigemptyset(&faults);
    for (const int signal : kSignals) sigaddset(&faults, signal);
    pthread_sigmask(SIG_UNBLOCK, &faults, nullptr);
}

// `exit` in another thread must not end the process before the crash does.
void AwaitCrashAtQuickExit() {
    WaitForCrash();
}

}  // namespace

DumpHandler* CreateDumpHandler(const unsigned short* directory, DumpUser user, DumpLimits limits) {
    static bool sAwaits = false;  // what failed once is tried again
    sAwaits = sAwaits || std::at_quick_exit(AwaitCrashAtQuickExit) == 0;
    const std::string absolute = AbsoluteDirectory(ToNative(directory));
    if (absolute.empty() || !sAwaits || !PrepareCrashTurns()) return nullptr;
    google_breakpad::LinuxPtraceDumper::SetProgram(ProgramPath().c_str());
    auto* handler = new (std::nothrow) DumpHandler(absolute, user, limits.megabytes);
    if (handler == nullptr) return nullptr;
    google_breakpad::DumpLimit::Set(1000LL * limits.seconds);
    gEquipment.asksEarlier = limits.asksEarlier;
    handler->mCrashStack.Install();
    gEquipment.reserve.Take();
    handler->mpOlder = gEquipment.newest;
    gEquipment.newest = handler;
    InstallHandlers();
    UnblockFaults();
    return handler;
}

void DestroyDumpHandlers(DumpHandler* newest) {
    if (newest == nullptr) return;
    if (!TakeCrash()) WaitForCrash();
    if (gEquipment.isInstalled) RestoreHandlers();
    LeaveCrash();
    gEquipment.newest = nullptr;
    while (newest != nullptr) {
        DumpHandler* const older = newest->mpOlder;
        delete newest;
        newest = older;
    }
    gEquipment.reserve.LetGo(false);
}

bool WriteDump(DumpHandler* handler) {
    const CancellationHeldBack heldBack;
    return handler->mDemands.WriteNow();
}

bool SharesMemory() {
    return gEquipment.newest != nullptr && IsGuest();
}

bool InstallCrashStack() {
    static thread_local CrashStack tStack;
    UnblockFaults();
    return tStack.Install();
}

void DeleteDump(const char* path) {
    unlink(path);
}

void MarkDumpSent(const char* path) {
    constexpr std::size_t kSize = sizeof kSentMark - 1;
    struct stat before {};
    const int file = open(path, O_WRONLY | O_APPEND | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (file < 0) return;
    // A partial mark is removed.
    if (fstat(file, &before) == 0 && write(file, kSentMark, kSize) != static_cast<ssize_t>(kSize))
        while (ftruncate(file, before.st_size) != 0 && errno == EINTR) {
        }
    close(file);
}

}  // namespace ZBase::os
