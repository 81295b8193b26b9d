#pragma once

namespace ZBase::os {

/// Keeps this library in the process for good. For what leaves a signal handler behind, which can't safely
/// go.
void StayLoaded();

}  // namespace ZBase::os
