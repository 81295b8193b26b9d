#pragma once

namespace ZBase::os {

/// Called on the faulting thread, in place of the faulting instruction, with the Win32 exception code of the
/// fault. Does not return: it throws.
using FaultTranslator = void (*)(unsigned int code, void* context);

/// From now on the faults of the calling thread are translated, before any crash handler gets them. A stack
/// overflow is not. The faults of other threads go to the previous handlers.
void SetFaultTranslator(FaultTranslator translator);

}  // namespace ZBase::os
