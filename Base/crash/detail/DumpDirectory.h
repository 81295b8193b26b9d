#pragma once

#include <Base/frame/WideString.h>

namespace ZBase::detail {

/// Returns the configured directory of the dumps, and creates it if it is missing; only its last level. False
/// if that fails.
bool HaveDumpDirectory(WideString& directory);

/// From now on the configured signal, if any, writes the stacks of all threads to that directory.
void WriteStacksWhenAsked(const WideString& directory);

}  // namespace ZBase::detail
