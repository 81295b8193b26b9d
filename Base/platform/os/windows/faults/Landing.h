#pragma once

#include <windows.h>

#include <Base/platform/os/faults/Faults.h>

namespace ZBase::os {

/// Has the thread go on in a call of the translator that seems to come from the frame of `place`, which is
/// where the instruction faulted if `isFault`, or behind a call that led there. `context` is the state that
/// the thread goes on with.
void LandInTranslator(CONTEXT& context, const CONTEXT& place, bool isFault, unsigned int code,
                      FaultTranslator translator);

}  // namespace ZBase::os
