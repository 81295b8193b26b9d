#pragma once

#include <signal.h>

namespace ZBase::os {

/// Throws if the fault is one that the calling thread wants translated; returns false otherwise. Runs in the
/// signal handler of the faulting thread. No heap, no lock before the translator is called.
bool TranslateFault(int signal, siginfo_t* information, void* context);

}  // namespace ZBase::os
