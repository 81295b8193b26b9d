#pragma once

#include <signal.h>

#include <Base/platform/os/linux/processes/CancellationHeldBack.h>

namespace ZBase::os {

/// Blocks all signals in the calling thread, and so in a thread or a process that it starts meanwhile, and
/// its cancellation.
class SignalsHeldBack {
public:
    SignalsHeldBack() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &mBefore);
    }
    ~SignalsHeldBack() { pthread_sigmask(SIG_SETMASK, &mBefore, nullptr); }
    SignalsHeldBack(const SignalsHeldBack&) = delete;
    SignalsHeldBack& operator=(const SignalsHeldBack&) = delete;

private:
    CancellationHeldBack mCancellation;
    sigset_t mBefore{};
};

}  // namespace ZBase::os
