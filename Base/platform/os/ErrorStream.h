#pragma once

#include <string_view>

namespace ZBase::os {

/// Writes a text to the error stream of the process, unbuffered. Errors are ignored.
void WriteErrorText(std::string_view text);

}  // namespace ZBase::os
