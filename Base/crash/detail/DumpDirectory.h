#pragma once

#include <Base/frame/WideString.h>

namespace ZBase::detail {

/// Gives the directory of the dumps as the configuration names it, and makes it if it is missing; only its
/// last level. False if it can't be made.
bool HaveDumpDirectory(WideString& directory);

/// From now on the signal that the configuration names, if it names one, has the stacks of all threads
/// written to that directory.
void WriteStacksWhenAsked(const WideString& directory);

}  // namespace ZBase::detail
