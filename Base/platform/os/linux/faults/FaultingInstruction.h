#pragma once

#include <ucontext.h>

namespace ZBase::os {

// What the instruction that faulted tells where its signal tells too little. All of it runs in a signal
// handler: no heap, no lock, and memory is read through the system, so that nothing here faults.

/// Whether a division faulted although its divisor is not zero: the quotient was too large.
bool IsDivisionOverflow(const ucontext_t& context);

/// Whether the instruction is one that only the system may run.
bool IsPrivilegedInstruction(const ucontext_t& context);

/// If the fault is a call that led to where no code is, goes back to the call; false if it can't be found.
/// Whatever else the fault is, it is left as it is, and the answer is true.
bool ReturnFromCallToNowhere(ucontext_t& context);

}  // namespace ZBase::os
