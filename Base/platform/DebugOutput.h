#pragma once

#include <Base/frame/Api.h>

#if defined(_WIN32)  // <windows.h> has macros of these names
#pragma push_macro("OutputDebugString")
#undef OutputDebugString
#endif

namespace ZBase {

/// Tells a debugger, or whoever listens to the system's debug output, a text and then a line end. Where
/// nobody listens to the system's log, it is offered 256 texts in 50 ms and no more. Never throws: a wide
/// text that there is no memory to convert is left out.
ZBASE_API void OutputDebugString(const unsigned short* text);
ZBASE_API void OutputDebugString(const char* text);

#if defined(_WIN32)
// What the calls are named by the macros of <windows.h>.
inline void OutputDebugStringA(const unsigned short* text) {
    OutputDebugString(text);
}
inline void OutputDebugStringA(const char* text) {
    OutputDebugString(text);
}
inline void OutputDebugStringW(const unsigned short* text) {
    OutputDebugString(text);
}
inline void OutputDebugStringW(const char* text) {
    OutputDebugString(text);
}
#endif

}  // namespace ZBase

#if defined(_WIN32)
#pragma pop_macro("OutputDebugString")
#endif
