// A fault arrives as a signal, and the exception is thrown out of its handler: the unwinder steps through the
// signal frame to the faulting instruction. The state that sigreturn would restore is restored by hand
// before: the signal mask and the control words of the floating point units.
//
// The handlers are process-wide, the translator is per thread. On a thread without one they chain to the
// previous handler. A crash handler that was installed later calls `TranslateFault` first.

#include <Base/platform/os/faults/Faults.h>
#include <Base/platform/os/linux/faults/AllocatorCode.h>
#include <Base/platform/os/linux/faults/FaultSignals.h>
#include <Base/platform/os/linux/faults/FaultState.h>
#include <Base/platform/os/linux/faults/FaultingInstruction.h>
#include <Base/platform/os/linux/stacks/Registers.h>
#include <Base/platform/os/modules/StayLoaded.h>

#include <pthread.h>
#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>
#include <cstdint>
#include <mutex>

namespace ZBase::os {

namespace {

enum ExceptionCode : unsigned int {
    kAccessViolation = 0xC0000005,
    kInPageError = 0xC0000006,
    kMisalignment = 0x80000002,
    kBreakpoint = 0x80000003,
    kSingleStep = 0x80000004,
    kIllegalInstruction = 0xC000001D,
    kArrayBoundsExceeded = 0xC000008C,
    kFloatDenormal = 0xC000008D,
    kFloatDivideByZero = 0xC000008E,
    kFloatInexact = 0xC000008F,
    kFloatInvalid = 0xC0000090,
    kFloatOverflow = 0xC0000091,
    kFloatStackCheck = 0xC0000092,
    kFloatUnderflow = 0xC0000093,
    kIntegerDivideByZero = 0xC0000094,
    kIntegerOverflow = 0xC0000095,
    kPrivilegedInstruction = 0xC0000096,
};

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP};
constexpr std::uintptr_t kStackNeighbourhood = 65536;

struct sigaction sBefore[NSIG];

// In the static TLS block: accessible in a signal handler without an allocation.
struct ThreadFaults {
    FaultTranslator translator;
    std::uintptr_t stackBottom;  // of the guard pages
    std::uintptr_t stackTop;
};
[[gnu::tls_model("initial-exec")]] thread_local constinit ThreadFaults tFaults{};

unsigned int FloatingPointCode(int reason, const ucontext_t& context) {
    switch (reason) {
        case FPE_INTDIV:  // one signal code for both
            return IsDivisionOverflow(context) ? kIntegerOverflow : kIntegerDivideByZero;
        case FPE_INTOVF:
            return kIntegerOverflow;
        case FPE_FLTDIV:
            return kFloatDivideByZero;
        case FPE_FLTOVF:
            return kFloatOverflow;
        case FPE_FLTUND:  // one for these as well
            return IsDenormalOperand(context) ? kFloatDenormal : kFloatUnderflow;
        case FPE_FLTRES:
            return kFloatInexact;
        case FPE_FLTSUB:
            return kArrayBoundsExceeded;
        default:
            return IsFloatingPointStackFault(context) ? kFloatStackCheck : kFloatInvalid;
    }
}

unsigned int CodeOf(int signal, const siginfo_t& information, const ucontext_t& context) {
    const int reason = information.si_code;
    switch (signal) {
        case SIGBUS:
            return reason == BUS_ADRALN ? kMisalignment : kInPageError;
        case SIGFPE:
            return FloatingPointCode(reason, context);
        case SIGILL:
            return reason == ILL_PRVOPC || reason == ILL_PRVREG ? kPrivilegedInstruction
                                                                : kIllegalInstruction;
        case SIGTRAP:
            return reason == TRAP_TRACE || reason == TRAP_HWBKPT ? kSingleStep : kBreakpoint;
        default:  // one for a non-canonical address and a privileged instruction
            return reason == SI_KERNEL && IsPrivilegedInstruction(context) ? kPrivilegedInstruction
                                                                           : kAccessViolation;
    }
}

bool IsStackOverflow(int signal, const siginfo_t& information, const ucontext_t& context) {
    if (signal != SIGSEGV || information.si_code == SI_KERNEL) return false;
    const auto address = reinterpret_cast<std::uintptr_t>(information.si_addr);
    GeneralRegisters registers{};
    StoreRegisters(context, registers);
    const std::uintptr_t stack = registers.StackPointer();
    if (address >= tFaults.stackBottom && address < tFaults.stackTop) return true;
    return address - stack + kStackNeighbourhood < 2 * kStackNeighbourhood;  // as unsigned
}

// Restores what sigreturn would.
void RestoreThread(const ucontext_t& context) {
    RestoreFloatingPoint(context);
    pthread_sigmask(SIG_SETMASK, &context.uc_sigmask, nullptr);
}

// Runs in a signal handler. No heap, no lock.
void PassOn(int signal, siginfo_t* information, void* context) {
    const struct sigaction& before = sBefore[signal];
    const bool isFunction =
        (before.sa_flags & SA_SIGINFO) != 0 || (before.sa_handler != SIG_DFL && before.sa_handler != SIG_IGN);
    if (isFunction) {
        pthread_sigmask(SIG_BLOCK, &before.sa_mask, nullptr);
        if ((before.sa_flags & SA_SIGINFO) != 0) return before.sa_sigaction(signal, information, context);
        return before.sa_handler(signal);
    }
    const bool isSent = information->si_code <= 0;
    if (isSent && before.sa_handler == SIG_IGN) return;
    // The default action: a fault recurs; a signal that was sent, and a trap, is sent again.
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    sigaction(signal, &standard, nullptr);
    if (isSent || signal == SIGTRAP) syscall(SYS_tgkill, getpid(), gettid(), signal);
}

void HandleFault(int signal, siginfo_t* information, void* context) {
    AllowMisalignment();
    if (!TranslateFault(signal, information, context)) PassOn(signal, information, context);
}

void InstallHandlers() {
    StayLoaded();  // the handlers are never removed
    FindAllocatorCode();
    struct sigaction action {};
    action.sa_sigaction = HandleFault;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    for (const int signal : kSignals) sigaddset(&action.sa_mask, signal);
    for (const int signal : kSignals) {
        sigaction(signal, nullptr, &sBefore[signal]);
        sigaction(signal, &action, nullptr);
    }
}

// The range of the calling thread's stack, guard pages included; empty if unknown.
void FindStack() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return;
    void* bottom = nullptr;
    std::size_t size = 0;
    std::size_t guard = 0;
    if (pthread_attr_getstack(&attributes, &bottom, &size) == 0) {
        pthread_attr_getguardsize(&attributes, &guard);
        tFaults.stackBottom = reinterpret_cast<std::uintptr_t>(bottom) - guard;
        tFaults.stackTop = reinterpret_cast<std::uintptr_t>(bottom) + size;
    }
    pthread_attr_destroy(&attributes);
}

}  // namespace

bool TranslateFault(int signal, siginfo_t* information, void* rawContext) {
    if (tFaults.translator == nullptr) return false;
    const bool isFault = information->si_code > 0;  // the others were sent by a process
    auto& context = *static_cast<ucontext_t*>(rawContext);
    if (signal == SIGABRT || !isFault || IsStackOverflow(signal, *information, context)) return false;
    // The exception needs the heap, whose lock this thread may hold.
    if (StandsInAllocator(context)) return false;
    const unsigned int code = CodeOf(signal, *information, context);
    if (!ReturnFromCallToNowhere(context)) return false;
    if (code == kBreakpoint) StepIntoBreakpoint(context);
    RestoreThread(context);
    tFaults.translator(code, rawContext);
    return false;
}

void SetFaultTranslator(FaultTranslator translator) {
    static std::once_flag sInstalled;
    std::call_once(sInstalled, InstallHandlers);
    if (tFaults.translator == nullptr) FindStack();
    tFaults.translator = translator;
}

}  // namespace ZBase::os
