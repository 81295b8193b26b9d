#pragma once

namespace ZBase::os {

/// Keeps this library in the process for good, for handlers that can't safely be removed.
void StayLoaded();

}  // namespace ZBase::os
