#pragma once

#include <signal.h>

namespace ZBase::os {

/// Asks the handler that was there before ours whether a fault is one of its own, as a run-time that makes
/// exceptions of null pointers has it. It runs as the system would have called it: with its own mask, on the
/// stack of this signal. True if the thread goes on: it returned, and the fault does not simply happen again.
/// False if there was none; if it gave up, so that its signal is the system's now; and if it returned a
/// thousand times without anything having changed. What it does in place of a return is its own affair.
///
/// Runs in the signal handler of the faulting thread. No heap, no lock.
bool AskEarlierHandler(const struct sigaction& before, int signal, siginfo_t* information, void* context);

}  // namespace ZBase::os
