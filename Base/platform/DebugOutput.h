#pragma once

#include <Base/frame/Api.h>

namespace ZBase {

/// Tells a debugger, or whoever listens to the system's debug output, a text and then a line end. Where
/// nobody listens to the system's log, it is offered 256 texts in 50 ms and no more.
ZBASE_API void OutputDebugString(const unsigned short* text);
ZBASE_API void OutputDebugString(const char* text);

}  // namespace ZBase
