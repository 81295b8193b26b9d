#pragma once

namespace ZBase::os {

/// Keeps this library in the process for good. For what leaves a handler behind that can't safely go.
void StayLoaded();

}  // namespace ZBase::os
