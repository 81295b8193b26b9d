#pragma once

namespace ZBase::os {

/// Called on the faulting thread, in place of the instruction that faulted, with the Win32 exception code
/// that the fault means. Does not return: it leaves by an exception.
using FaultTranslator = void (*)(unsigned int code, void* context);

/// From now on the faults of the calling thread are translated, before any crash handler sees them. A stack
/// overflow is not. The faults of other threads go where they went before.
void SetFaultTranslator(FaultTranslator translator);

}  // namespace ZBase::os
