#pragma once

#include <string>

namespace ZBase::os {

/// Puts the value of a variable into `value`; false if it is not set.
bool GetEnvironment(const unsigned short* name, std::basic_string<unsigned short>& value);

/// Sets a variable, or removes it if `value` is empty; false if the system refuses.
bool PutEnvironment(const unsigned short* name, const unsigned short* value);

/// The value of a variable with a narrow name, or null; valid until the environment changes. Always null in a
/// program with the rights of another user than the one who started it (set-user-id).
const char* GetNarrowEnvironment(const char* name);

}  // namespace ZBase::os
