#pragma once

#include <string>

namespace ZBase::os {

// UTF-8 text into a buffer with space for `capacity` units.

/// Writes the text and a terminator. If not all of it fits nothing is written, the last code is 122, and the
/// result false.
bool PutText(const std::string& text, unsigned short* buffer, unsigned int capacity);

/// Writes as much of the text as fits, and a terminator. Returns the units of the text; `capacity` and the
/// last code 122 if it was cut.
unsigned int PutTextCut(const std::string& text, unsigned short* buffer, unsigned int capacity);

}  // namespace ZBase::os
