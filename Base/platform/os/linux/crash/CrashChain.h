#pragma once

#include <signal.h>

namespace ZBase::os {

/// Calls the previous handler for a fault, as for a run-time that makes exceptions of null pointers. It runs
/// as the kernel would have called it: with its own mask, on the stack of this signal. True if the thread may
/// continue: it returned, and the fault is not simply repeated. False if there was none; if it reset the
/// signal to the default action; and if it returned a thousand times without any change. It may also not
/// return.
///
/// Runs in the signal handler of the faulting thread. No heap, no lock.
bool AskEarlierHandler(const struct sigaction& before, int signal, siginfo_t* information, void* context);

}  // namespace ZBase::os
