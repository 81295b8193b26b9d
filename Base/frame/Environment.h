#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnWString.h>

#include <cstdint>

#if defined(_WIN32)  // <windows.h> has macros of these names
#pragma push_macro("SetEnvironmentVariable")
#undef SetEnvironmentVariable
#endif

namespace ZBase {

// The environment of the process. Names and values are wide text and are converted to UTF-8 for the system,
// bad units replaced. Like the C library's functions, these must not run beside a writer of the environment.
// Those that take wide text throw `std::bad_alloc`.

/// The value, or a null string if the variable is not set.
ZBASE_API ReturnWString GetEnvironmentVariableOrNULL(const unsigned short* name);

/// The value; empty if the variable is not set or `name` is null.
ZBASE_API ReturnWString ReadEnvironmentVariable(const unsigned short* name);

/// Sets a variable; an empty or null value removes it. A null name does nothing, and failures are ignored.
ZBASE_API void SetEnvironmentVariable(const unsigned short* name, const unsigned short* value);

/// The decimal number that the value begins with, or `defaultValue` if `name` is null, or if the variable is
/// not set, does not begin with a number or exceeds 64 bits, and in a program that runs with more rights than
/// its user. Never throws.
ZBASE_API std::int64_t GetNumericEnvironmentVariable(const char* name, std::int64_t defaultValue);

#if defined(_WIN32)
// What the calls are named by the macros of <windows.h>.
inline void SetEnvironmentVariableA(const unsigned short* name, const unsigned short* value) {
    SetEnvironmentVariable(name, value);
}
inline void SetEnvironmentVariableW(const unsigned short* name, const unsigned short* value) {
    SetEnvironmentVariable(name, value);
}
#endif

}  // namespace ZBase

#if defined(_WIN32)
#pragma pop_macro("SetEnvironmentVariable")
#endif
