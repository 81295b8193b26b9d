// A thread is stopped by a real-time signal: its handler stores the register state, reports, and waits on a
// futex until it is resumed. Stopped anywhere, a thread could hold the heap's or the loader's lock, and the
// walk of its stack, which allocates, would wait for it for ever. So a stopped thread's stack is looked
// through at once, without heap or lock; where it stands in the code of the allocator or the loader it is let
// go on for a moment and stopped again.

#include <dlfcn.h>
#include <linux/futex.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <mutex>

#include <Base/platform/os/SystemErrors.h>
#include <Base/platform/os/ThreadContext.h>
#include <Base/platform/os/linux/ErrorCodes.h>
#include <Base/platform/os/linux/FrameRules.h>
#include <Base/platform/os/linux/StayLoaded.h>

namespace ZBase::os {

namespace {

constexpr long kAnswerNanoseconds = 1'000'000'000;
constexpr std::uint64_t kBusyNanoseconds = 50'000'000;
constexpr long kPollNanoseconds = 2'000'000;
constexpr unsigned int kFramesToSearch = 64;
constexpr unsigned int kWordsToSearch = 64;

enum State : std::uint32_t { Free, Asked, Storing, Stored, Released };

// What the signal carries is the number of the request, never an address: a signal that comes too late finds
// another number and does nothing.
struct Request {
    std::atomic<std::uint32_t> state{Free};
    std::atomic<std::uint32_t> number{0};
    std::atomic<pid_t> thread{0};
    std::atomic<bool> stop{false};
    ThreadContext context{};
};

// One thread is stopped at a time; another capture waits for its turn.
constinit Request sRequest;
constinit std::mutex sTurn;
constinit std::atomic<int> sSignal{0};
constinit std::atomic<pid_t> sStopped{0};

void Wait(std::atomic<std::uint32_t>& word, std::uint32_t value, const timespec* timeout) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, value, timeout, nullptr,
            0);
}

void Wake(std::atomic<std::uint32_t>& word) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void Store(const ucontext_t& from, ThreadContext& to) {
    const auto& registers = from.uc_mcontext.gregs;
    const auto value = [&](int number) { return static_cast<std::uint64_t>(registers[number]); };
    to.contextFlags = kFullContext;
    to.flags = static_cast<std::uint32_t>(value(REG_EFL));
    to.rax = value(REG_RAX);
    to.rcx = value(REG_RCX);
    to.rdx = value(REG_RDX);
    to.rbx = value(REG_RBX);
    to.rsp = value(REG_RSP);
    to.rbp = value(REG_RBP);
    to.rsi = value(REG_RSI);
    to.rdi = value(REG_RDI);
    to.r8 = value(REG_R8);
    to.r9 = value(REG_R9);
    to.r10 = value(REG_R10);
    to.r11 = value(REG_R11);
    to.r12 = value(REG_R12);
    to.r13 = value(REG_R13);
    to.r14 = value(REG_R14);
    to.r15 = value(REG_R15);
    to.rip = value(REG_RIP);
}

// Runs on the thread that is asked, wherever it is. No heap, no lock.
void Answer(int, siginfo_t* information, void* context) {
    const int error = errno;
    const auto number = static_cast<std::uint32_t>(information->si_value.sival_int);
    std::uint32_t asked = Asked;
    if (information->si_code == SI_QUEUE && sRequest.number.load() == number &&
        sRequest.thread.load() == gettid() && sRequest.state.compare_exchange_strong(asked, Storing)) {
        Store(*static_cast<const ucontext_t*>(context), sRequest.context);
        const bool stop = sRequest.stop.load();
        sRequest.state.store(Stored);
        Wake(sRequest.state);
        while (stop && sRequest.state.load() == Stored && sRequest.number.load() == number)
            Wait(sRequest.state, Stored, nullptr);
        if (stop) {
            sRequest.state.store(Free);
            Wake(sRequest.state);
        }
    }
    errno = error;
}

bool IsInstalled(int number) {
    struct sigaction present {};
    return number != 0 && sigaction(number, nullptr, &present) == 0 && present.sa_sigaction == Answer;
}

// A real-time signal that nobody has taken, from the last one down. Looked at each time: somebody may take it
// later.
bool InstallAnswer() {
    if (IsInstalled(sSignal.load())) return true;
    StayLoaded();  // the handler stays
    for (int number = SIGRTMAX - 1; number > SIGRTMIN; --number) {
        struct sigaction present {};
        if (sigaction(number, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) continue;
        struct sigaction action {};
        action.sa_sigaction = Answer;
        action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
        sigfillset(&action.sa_mask);
        if (sigaction(number, &action, nullptr) != 0) return false;
        sSignal.store(number);
        return true;
    }
    return false;
}

// A handle is a `pthread_t`, which is even, or the id of a thread with the lowest bit set.
constexpr std::uintptr_t kIdMark = 1;

bool IsId(void* thread) {
    return (reinterpret_cast<std::uintptr_t>(thread) & kIdMark) != 0;
}

pid_t IdOf(void* thread) {
    if (IsId(thread)) return static_cast<pid_t>(reinterpret_cast<std::uintptr_t>(thread) >> 1);
    if (thread == nullptr) return 0;
    // The clock of a thread's time is named after its id: the system's own encoding, and the only way from
    // the one to the other. It fails for a thread that has ended.
    clockid_t clock = 0;
    if (pthread_getcpuclockid(reinterpret_cast<pthread_t>(thread), &clock) != 0) return 0;
    return static_cast<pid_t>(~(clock >> 3));
}

bool IsThere(pid_t thread) {
    return syscall(SYS_tgkill, getpid(), thread, 0) == 0;
}

bool Signal(pid_t thread, std::uint32_t number) {
    siginfo_t information{};
    information.si_signo = sSignal.load();
    information.si_code = SI_QUEUE;
    information.si_pid = getpid();
    information.si_uid = getuid();
    information.si_value.sival_int = static_cast<int>(number);
    return syscall(SYS_rt_tgsigqueueinfo, getpid(), thread, information.si_signo, &information) == 0;
}

// Asks a thread for its state and waits for the answer.
bool Ask(pid_t thread, bool stop) {
    if (!InstallAnswer()) return false;
    const std::uint32_t number = sRequest.number.load() + 1;
    sRequest.thread.store(thread);
    sRequest.stop.store(stop);
    sRequest.number.store(number);
    sRequest.state.store(Asked);
    bool isAsked = Signal(thread, number);
    const timespec poll{0, kPollNanoseconds};
    for (long waited = 0; isAsked && waited < kAnswerNanoseconds; waited += kPollNanoseconds) {
        const std::uint32_t state = sRequest.state.load();
        if (state == Stored) return true;
        Wait(sRequest.state, state, &poll);
        isAsked = sRequest.state.load() != Asked || IsThere(thread);
    }
    // Taken back, unless the handler has just begun.
    std::uint32_t asked = Asked;
    if (sRequest.state.compare_exchange_strong(asked, Free)) return false;
    while (sRequest.state.load() == Storing) Wait(sRequest.state, Storing, &poll);
    return true;
}

void LetGo() {
    sRequest.state.store(Released);
    Wake(sRequest.state);
    const timespec poll{0, kPollNanoseconds};
    // Its end is the thread's own word that it no longer looks at the request.
    while (sRequest.state.load() == Released && IsThere(sRequest.thread.load()))
        Wait(sRequest.state, Released, &poll);
    sRequest.state.store(Free);
}

struct Range {
    std::uint64_t start;
    std::uint64_t end;

    bool Holds(std::uint64_t address) const { return address >= start && address < end; }
};

std::uint64_t AddressOf(const char* function) {
    return reinterpret_cast<std::uint64_t>(dlsym(RTLD_DEFAULT, function));
}

// The code in which a thread may hold the lock of the heap, or of the loader.
struct LockingCode {
    Range allocator;
    Range loader;
    Range system;  // all of the C library, which has further locks
    std::uint64_t iterate;
};

LockingCode FindLockingCode() {
    // The C library's allocator is one run of code around its entry points, its inner functions not far off;
    // another allocator is a module of its own.
    constexpr std::uint64_t kAround = 0x6000;
    LockingCode code{};
    const std::uint64_t allocate = AddressOf("malloc");
    code.allocator = {allocate - kAround, allocate + kAround};
    UnwindModule system{};
    UnwindModule own{};
    if (FindUnwindModule(AddressOf("gnu_get_libc_version"), system) && FindUnwindModule(allocate, own)) {
        if (own.start == system.start) {
            for (const char* name : {"free", "calloc", "realloc", "memalign", "malloc_trim", "mallopt"}) {
                const std::uint64_t address = AddressOf(name);
                if (address < system.start || address >= system.end) continue;
                code.allocator.start = std::min(code.allocator.start, address - kAround);
                code.allocator.end = std::max(code.allocator.end, address + kAround);
            }
        } else if (const std::uint64_t entry = getauxval(AT_ENTRY); entry < own.start || entry >= own.end) {
            code.allocator = {own.start, own.end};
        }
    }
    UnwindModule loader{};
    if (FindUnwindModule(AddressOf("__tls_get_addr"), loader)) code.loader = {loader.start, loader.end};
    code.iterate = AddressOf("dl_iterate_phdr");
    code.system = {system.start, system.end};
    return code;
}

const LockingCode& Locking() {
    static const LockingCode code = FindLockingCode();
    return code;
}

bool IsLocking(const LockingCode& code, std::uint64_t address) {
    return code.allocator.Holds(address) || code.loader.Holds(address);
}

// Where code without unwind tables, such as what a module begins with, hides its caller, that may be any word
// of the stack.
bool MayBeCalledByLockingCode(std::uint64_t stackPointer, const LockingCode& code) {
    for (std::uint64_t i = 0; i != kWordsToSearch; ++i) {
        std::uint64_t word = 0;
        if (!LoadForeignWord(stackPointer + 8 * i, word)) return false;
        if (IsLocking(code, word)) return true;
    }
    return false;
}

bool MayHoldLocks(const ThreadContext& context, const LockingCode& code) {
    FrameWalker walker(context, LoadForeignWord);
    for (unsigned int i = 0; i != kFramesToSearch; ++i) {
        const std::uint64_t address = walker.Address();
        if (IsLocking(code, address)) return true;
        if (code.system.Holds(address) && walker.FunctionStart() == code.iterate) return true;
        if (!walker.Step()) return !walker.IsAtEnd() && MayBeCalledByLockingCode(walker.StackPointer(), code);
    }
    return false;
}

// The other locks of the C library are short, but for those of its streams, which no capture uses. A thread
// that stands in the library's code elsewhere than at a call of the system has a while to come out.
bool IsBusyInSystemLibrary(const ThreadContext& context, const LockingCode& code) {
    constexpr unsigned char kSyscall[2] = {0x0F, 0x05};
    return code.system.Holds(context.rip) &&
           std::memcmp(reinterpret_cast<const void*>(context.rip - 2), kSyscall, sizeof kSyscall) != 0;
}

std::uint64_t Now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<std::uint64_t>(now.tv_nsec);
}

}  // namespace

void* OpenThread(std::uint32_t, unsigned long threadId) {
    if (threadId == 0 || threadId > 0x3FFFFFFF || !IsThere(static_cast<pid_t>(threadId))) {
        SetLastCode(kInvalidParameter);
        return nullptr;
    }
    return reinterpret_cast<void*>(threadId << 1 | kIdMark);
}

void CloseThread(void*) {}

bool SuspendThread(void* thread) {
    if (thread == nullptr || IsId(thread)) {
        SetLastCode(kAccessDenied);
        return false;
    }
    const LockingCode& code = Locking();
    sTurn.lock();
    const std::uint64_t start = Now();
    for (timespec pause{0, 20'000};; nanosleep(&pause, nullptr)) {
        const pid_t id = IdOf(thread);
        if (id == 0 || !Ask(id, true)) break;
        const std::uint64_t waited = Now() - start;
        const bool isBusy = waited < kBusyNanoseconds && IsBusyInSystemLibrary(sRequest.context, code);
        if (!isBusy && !MayHoldLocks(sRequest.context, code)) {
            sStopped.store(id);
            return true;
        }
        LetGo();
        if (waited > kAnswerNanoseconds) break;
    }
    sTurn.unlock();
    SetLastCode(kAccessDenied);
    return false;
}

bool ResumeThread(void* thread) {
    if (thread == nullptr || IsId(thread) || sStopped.load() == 0 || sStopped.load() != IdOf(thread)) {
        SetLastCode(kAccessDenied);
        return false;
    }
    sStopped.store(0);
    LetGo();
    sTurn.unlock();
    return true;
}

bool GetThreadContext(void* thread, ThreadContext& context) {
    const pid_t id = IdOf(thread);
    if (id == 0) {
        SetLastCode(kInvalidParameter);
        return false;
    }
    if (sStopped.load() == id) {
        context = sRequest.context;
        return true;
    }
    // The state of this call would be of frames that are gone when it is used.
    if (!IsId(thread) || id == gettid()) return false;
    const std::scoped_lock turn(sTurn);
    if (!Ask(id, false)) {
        SetLastCode(kInvalidParameter);
        return false;
    }
    context = sRequest.context;
    sRequest.state.store(Free);
    return true;
}

}  // namespace ZBase::os
