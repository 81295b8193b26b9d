#pragma once

#include <ucontext.h>

namespace ZBase::os {

// Decodes the faulting instruction where the signal code is ambiguous. All of it runs in a signal handler: no
// heap, no lock, and memory is read through the system, which can't fault.

/// Whether a division faulted although its divisor is not zero: the quotient overflowed.
bool IsDivisionOverflow(const ucontext_t& context);

/// Whether the instruction is a privileged one.
bool IsPrivilegedInstruction(const ucontext_t& context);

/// If the fault is a call to an address without code, goes back to the call; false if it can't be found. For
/// any other fault nothing changes, and the result is true.
bool ReturnFromCallToNowhere(ucontext_t& context);

}  // namespace ZBase::os
