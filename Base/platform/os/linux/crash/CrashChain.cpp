#include <Base/platform/os/linux/crash/CrashChain.h>

#include <pthread.h>
#include <ucontext.h>
#include <cstdint>

namespace ZBase::os {

namespace {

constexpr unsigned int kMostRepetitions = 1000;

// Of the calling thread; in the static TLS block, so that access allocates nothing.
struct LastFault {
    std::uint64_t state;  // of its registers and of the address
    unsigned int repetitions;
};
[[gnu::tls_model("initial-exec")]] thread_local constinit LastFault tLast{};

// A handler may fix a fault by memory alone. But if no register changes, nothing was fixed.
bool HappensAgain(const siginfo_t& information, const ucontext_t& context) {
    std::uint64_t state = reinterpret_cast<std::uint64_t>(information.si_addr);
    for (const greg_t value : context.uc_mcontext.gregs)
        state = (state ^ static_cast<std::uint64_t>(value)) * 0x9E3779B97F4A7C15 ^ state >> 29;
    tLast.repetitions = state == tLast.state ? tLast.repetitions + 1 : 0;
    tLast.state = state;
    return tLast.repetitions >= kMostRepetitions;
}

bool IsStandard(const struct sigaction& action) {
    const bool takesInformation = (action.sa_flags & SA_SIGINFO) != 0;
    return !takesInformation && (action.sa_handler == SIG_DFL || action.sa_handler == SIG_IGN);
}

void Call(const struct sigaction& action, int signal, siginfo_t* information, void* context) {
    sigset_t ours;
    sigset_t its = static_cast<ucontext_t*>(context)->uc_sigmask;
    sigorset(&its, &its, &action.sa_mask);
    if ((action.sa_flags & SA_NODEFER) == 0) sigaddset(&its, signal);
    pthread_sigmask(SIG_SETMASK, &its, &ours);
    if ((action.sa_flags & SA_SIGINFO) != 0) {
        action.sa_sigaction(signal, information, context);
    } else {
        action.sa_handler(signal);
    }
    pthread_sigmask(SIG_SETMASK, &ours, nullptr);
}

}  // namespace

bool AskEarlierHandler(const struct sigaction& before, int signal, siginfo_t* information, void* context) {
    const auto& state = *static_cast<const ucontext_t*>(context);
    if (IsStandard(before) || HappensAgain(*information, state)) return false;
    struct sigaction ours {};
    sigaction(signal, nullptr, &ours);
    Call(before, signal, information, context);
    struct sigaction present {};
    if (sigaction(signal, nullptr, &present) != 0 || !IsStandard(present)) return true;
    sigaction(signal, &ours, nullptr);
    return false;
}

}  // namespace ZBase::os
