// A thread is stopped by a real-time signal: its handler stores the register state, reports, and waits on a
// futex until it is resumed. It may hold any lock meanwhile, so the stopping thread must take none.
//
// A thread that blocks the signal would find it pending later, and `sigtimedwait` for all signals would
// return it; so /proc is read first to see whether the thread takes signals. If it begins to block them at
// that moment, the pending signal is discarded.

#include <linux/futex.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <string_view>

#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/linux/errors/ErrorCodes.h>
#include <Base/platform/os/linux/faults/FaultState.h>
#include <Base/platform/os/linux/processes/CancellationHeldBack.h>
#include <Base/platform/os/linux/processes/ThreadFiles.h>
#include <Base/platform/os/linux/stacks/Registers.h>
#include <Base/platform/os/linux/stacks/ThreadStops.h>
#include <Base/platform/os/modules/StayLoaded.h>
#include <Base/platform/os/stacks/ThreadContext.h>

namespace ZBase::os {

namespace {

constexpr long kAnswerNanoseconds = 1'000'000'000;
constexpr long kPollNanoseconds = 2'000'000;
constexpr long kMomentNanoseconds = 50'000;

enum State : std::uint32_t { Free, Asked, Storing, Stored, Released };

// The signal carries the number of the request, never an address: a late signal has another number and does
// nothing.
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
constinit std::atomic<void*> sStopped{nullptr};      // the handle that it was stopped by
constinit int sCancelState = PTHREAD_CANCEL_ENABLE;  // of the thread that stops it, before that
[[gnu::tls_model("initial-exec")]] thread_local constinit bool tHolds = false;  // the turn, while it forks

void Wait(std::atomic<std::uint32_t>& word, std::uint32_t value, const timespec* timeout) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAIT_PRIVATE, value, timeout, nullptr,
            0);
}

void Wake(std::atomic<std::uint32_t>& word) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

// Runs on the thread that is asked, wherever it is. No heap, no lock. It looks again from time to time: a
// wake that the system refuses must not hold it for ever.
void Answer(int, siginfo_t* information, void* context) {
    AllowMisalignment();
    const int error = errno;
    const auto number = static_cast<std::uint32_t>(information->si_value.sival_int);
    std::uint32_t asked = Asked;
    if (information->si_code == SI_QUEUE && sRequest.number.load() == number &&
        sRequest.thread.load() == gettid() && sRequest.state.compare_exchange_strong(asked, Storing)) {
        StoreContext(*static_cast<const ucontext_t*>(context), sRequest.context);
        const bool stop = sRequest.stop.load();
        sRequest.state.store(Stored);
        Wake(sRequest.state);
        const timespec poll{0, kPollNanoseconds};
        while (stop && sRequest.state.load() == Stored && sRequest.number.load() == number)
            Wait(sRequest.state, Stored, &poll);
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

void SetAnswer(int number) {
    struct sigaction action {};
    action.sa_sigaction = Answer;
    action.sa_flags = SA_SIGINFO | SA_RESTART | SA_ONSTACK;
    // Including those that the C library never blocks, which marks a thread in the handler.
    std::memset(&action.sa_mask, 0xFF, sizeof action.sa_mask);
    sigaction(number, &action, nullptr);
}

// Ignoring a signal discards it wherever it is pending.
void DiscardPending() {
    const int number = sSignal.load();
    if (!IsInstalled(number)) return;
    std::signal(number, SIG_IGN);
    SetAnswer(number);
}

// The highest free real-time signal. Searched each time: the host may install a handler later.
bool InstallAnswer() {
    for (int number = SIGRTMAX - 1; number > SIGRTMIN; --number) {
        struct sigaction present {};
        if (sigaction(number, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) continue;
        SetAnswer(number);
        sSignal.store(number);
        return true;
    }
    return false;
}

// The handler is never removed, so the library stays loaded.
bool InstallAnswerForGood() {
    if (IsInstalled(sSignal.load())) return true;
    StayLoaded();
    return InstallAnswer();
}

// A handle is a `pthread_t`, which is even, or a thread id with the lowest bit set.
constexpr std::uintptr_t kIdMark = 1;

bool IsId(void* thread) {
    return (reinterpret_cast<std::uintptr_t>(thread) & kIdMark) != 0;
}

pid_t IdOf(void* thread) {
    if (IsId(thread)) return static_cast<pid_t>(reinterpret_cast<std::uintptr_t>(thread) >> 1);
    if (thread == nullptr) return 0;
    // The id of a thread's CPU clock encodes its thread id (the kernel's encoding), which is the only way to
    // get it from a `pthread_t`. It fails for a thread that has ended.
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

constexpr int kRunning = -1;

// The system call that a thread sleeps in, or `kRunning`.
int CallOf(pid_t thread) {
    char room[256];
    const std::string_view call = ReadThreadFile(thread, "syscall", room, sizeof room);
    int number = kRunning;
    std::from_chars(call.data(), call.data() + call.size(), number);
    return number;
}

// The processor time of a thread, in nanoseconds.
std::int64_t TimeOf(pid_t thread) {
    constexpr clockid_t kOfThread = 6;  // the kernel's encoding of such a clock
    timespec time{};
    clock_gettime(static_cast<clockid_t>(~static_cast<unsigned int>(thread) << 3) | kOfThread, &time);
    return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

/// A thread's signal state in /proc at one moment.
struct Look {
    enum Answer { No, NotNow, Yes, Maybe } answer;
    std::uint64_t sleeps;  // so far
    std::int64_t time;
};

Look LookAt(pid_t thread, int signal) {
    // The C library's own signals are blocked only by itself, for a moment, and in the handler.
    constexpr int kLibrarys = 32;
    char room[4096];
    const int before = CallOf(thread);
    const std::string_view status = ReadThreadFile(thread, "status", room, sizeof room);
    // Without a descriptor it can't be seen, and a signal that the thread would take for its own is worse
    // than no stack.
    if (status.empty() && (errno == EMFILE || errno == ENFILE)) return {Look::No, 0, 0};
    const std::uint64_t blocked = NumberBehind(status, "SigBlk:\t", 16);
    Look look{Look::Maybe, NumberBehind(status, "voluntary_ctxt_switches:\t", 10), TimeOf(thread)};
    const int behind = CallOf(thread);
    if (before == SYS_rt_sigtimedwait || behind == SYS_rt_sigtimedwait)
        look.answer = Look::No;
    else if ((blocked >> (signal - 1) & 1) != 0)
        look.answer = (blocked >> (kLibrarys - 1) & 1) != 0 ? Look::NotNow : Look::No;
    else if (status.empty() || (before == behind && before != kRunning))
        look.answer = Look::Yes;
    return look;
}

// A thread in `sigtimedwait` does not block the signals meanwhile, and for a few microseconds before and
// after its sleep, or longer if it waits for a processor, it looks like a running one. So a running thread is
// observed until it has made progress without a sleep, or often enough.
bool TakesSignals(pid_t thread, int signal, long limit) {
    constexpr int kEnough = 6;
    constexpr std::int64_t kProgress = 20'000;
    const timespec pause{0, kMomentNanoseconds};
    Look last{Look::NotNow, 0, 0};
    int moves = 0;
    for (long waited = 0; waited < limit; waited += kMomentNanoseconds) {
        const Look look = LookAt(thread, signal);
        if (look.answer == Look::No) return false;
        if (look.answer == Look::Yes) return true;
        if (look.answer == Look::Maybe && last.answer == Look::Maybe) {
            if (look.sleeps == last.sleeps && look.time - last.time >= kProgress) return true;
            moves += look.sleeps != last.sleeps || look.time != last.time;
            if (moves == kEnough) return true;
        }
        if (look.sleeps != last.sleeps || look.answer != last.answer) last = look;
        nanosleep(&pause, nullptr);
        if (look.answer == Look::Maybe && !IsThere(thread)) return false;
    }
    return false;
}

// Requests a thread's state and waits for the reply.
bool Ask(pid_t thread, bool stop, long limit = kAnswerNanoseconds) {
    if (!TakesSignals(thread, sSignal.load(), limit)) return false;
    const std::uint32_t number = sRequest.number.load() + 1;
    sRequest.thread.store(thread);
    sRequest.stop.store(stop);
    sRequest.number.store(number);
    sRequest.state.store(Asked);
    bool isAsked = Signal(thread, number);
    const timespec poll{0, kPollNanoseconds};
    for (long waited = 0; isAsked && waited < limit; waited += kPollNanoseconds) {
        const std::uint32_t state = sRequest.state.load();
        if (state == Stored) return true;
        Wait(sRequest.state, state, &poll);
        isAsked = sRequest.state.load() != Asked || IsThere(thread);
    }
    // Withdrawn, unless the handler has just begun.
    std::uint32_t asked = Asked;
    if (sRequest.state.compare_exchange_strong(asked, Free)) {
        DiscardPending();
        return false;
    }
    while (sRequest.state.load() == Storing) Wait(sRequest.state, Storing, &poll);
    return true;
}

void LetGo() {
    sRequest.state.store(Released);
    Wake(sRequest.state);
    const timespec poll{0, kPollNanoseconds};
    // The handler itself stores Free once it has stopped reading the request.
    while (sRequest.state.load() == Released && IsThere(sRequest.thread.load()))
        Wait(sRequest.state, Released, &poll);
    sRequest.state.store(Free);
}

bool WaitForTurn(long nanoseconds) {
    constexpr long kMillisecond = 1'000'000;
    for (long waited = 0; waited < nanoseconds; waited += kMillisecond) {
        if (sTurn.try_lock()) return true;
        const timespec pause{0, kMillisecond};
        nanosleep(&pause, nullptr);
    }
    return false;
}

}  // namespace

// Keeping the library loaded takes the loader's lock, so a handler that is not installed yet is installed for
// this object's life only.
ThreadStops::ThreadStops(long nanoseconds) : mHasTurn(WaitForTurn(nanoseconds)) {
    if (!mHasTurn || IsInstalled(sSignal.load())) return;
    mIsOwnAnswer = InstallAnswer();
}

ThreadStops::~ThreadStops() {
    if (mIsOwnAnswer && IsInstalled(sSignal.load())) std::signal(sSignal.exchange(0), SIG_DFL);
    if (mHasTurn) sTurn.unlock();
}

bool ThreadStops::Visit(pid_t thread, long nanoseconds,
                        void (*visit)(void* argument, const ThreadContext& context), void* argument) {
    if (!mHasTurn || !IsInstalled(sSignal.load()) || !Ask(thread, true, nanoseconds)) return false;
    visit(argument, sRequest.context);
    LetGo();
    return true;
}

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
    sTurn.lock();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &sCancelState);
    const pid_t id = IdOf(thread);
    if (id != 0 && InstallAnswerForGood() && Ask(id, true)) {
        sStopped.store(thread);
        return true;
    }
    pthread_setcancelstate(sCancelState, nullptr);
    sTurn.unlock();
    SetLastCode(kAccessDenied);
    return false;
}

bool ResumeThread(void* thread) {
    if (thread == nullptr || sStopped.load() != thread) {
        SetLastCode(kAccessDenied);
        return false;
    }
    sStopped.store(nullptr);
    LetGo();
    pthread_setcancelstate(sCancelState, nullptr);
    sTurn.unlock();
    return true;
}

// A stop is short, unless a thread does not reply.
void HoldThreadStops() {
    constexpr long kNanoseconds = 20'000'000;
    tHolds = WaitForTurn(kNanoseconds);
}

void ReleaseThreadStops() {
    if (tHolds) sTurn.unlock();
    tHolds = false;
}

void ForgetThreadStops() {
    tHolds = false;
    sStopped.store(nullptr);
    sRequest.state.store(Free);
    sRequest.thread.store(0);
    ::new (static_cast<void*>(&sTurn)) std::mutex;
}

bool IsSuspended(void* thread) {
    return thread != nullptr && sStopped.load() == thread;
}

bool GetThreadContext(void* thread, ThreadContext& context) {
    const pid_t id = IdOf(thread);
    if (id == 0) {
        SetLastCode(kInvalidParameter);
        return false;
    }
    if (IsSuspended(thread)) {
        context = sRequest.context;
        return true;
    }
    // The state of this call would be of frames that are gone when it is used.
    if (!IsId(thread) || id == gettid()) return false;
    const CancellationHeldBack heldBack;
    const std::scoped_lock turn(sTurn);
    if (!InstallAnswerForGood() || !Ask(id, false)) {
        SetLastCode(kInvalidParameter);
        return false;
    }
    context = sRequest.context;
    sRequest.state.store(Free);
    return true;
}

}  // namespace ZBase::os
