#pragma once

#include <ucontext.h>

namespace ZBase::os {

// Processor state at a fault, and its repair before an exception leaves the handler. All of it runs in a
// signal handler: no heap, no lock.

/// Which unmasked floating point fault it is, where the signal code is ambiguous.
bool IsDenormalOperand(const ucontext_t& context);
bool IsFloatingPointStackFault(const ucontext_t& context);

/// Restores the control words of the floating point units, as a return from the handler would. Exceptions
/// stay unmasked, their flags are cleared.
void RestoreFloatingPoint(const ucontext_t& context);

/// Clears the alignment check flag (AC), which a handler has from the thread that it interrupts: each handler
/// begins with this, since the library's own code makes unaligned accesses, with vectors too, which some
/// processors check.
void AllowMisalignment();

/// At a breakpoint the program counter is after the instruction, which may be the last one that a catch block
/// covers: goes back into it.
void StepIntoBreakpoint(ucontext_t& context);

}  // namespace ZBase::os
