#pragma once

#include <string_view>

namespace ZBase::os {

/// Writes a text to the error stream of the process, past all buffers. What can't be written is left out.
void WriteErrorText(std::string_view text);

}  // namespace ZBase::os
