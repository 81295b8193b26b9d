#pragma once

#include <ucontext.h>

namespace ZBase::os {

// What the processor's state at a fault tells, and what of it is made good before an exception leaves the
// handler. All of it runs in a signal handler: no heap, no lock.

/// Which unmasked floating point fault it is, where its signal tells too little.
bool IsDenormalOperand(const ucontext_t& context);
bool IsFloatingPointStackFault(const ucontext_t& context);

/// Restores the control words of the floating point units, as a return from the handler would. Exceptions
/// stay unmasked, their flags are cleared.
void RestoreFloatingPoint(const ucontext_t& context);

/// Lets the handler read what is not aligned: with the check of alignment on, the library's own code would
/// fault next.
void AllowMisalignment();

/// A breakpoint is reported behind its instruction, which may be the last one that a handler covers: goes
/// back into it.
void StepIntoBreakpoint(ucontext_t& context);

}  // namespace ZBase::os
