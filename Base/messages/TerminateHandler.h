#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// From now on an uncaught exception is printed on the error stream, before the handler that was set until
/// now (`std::set_terminate`) ends the process: a `Message` with its whole tree as by `FormatTree`, anything
/// else as by `MessageOfCurrentException`. A second call changes nothing while the handler is the current
/// one. The library stays in the process from then on. May be called at any time from any thread.
ZBASE_API void InstallTerminateHandler();

}  // namespace ZBase
