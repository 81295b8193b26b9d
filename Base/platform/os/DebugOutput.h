#pragma once

namespace ZBase::os {

/// Hands a piece of text to the system's debug output; null is nothing. Narrow text is UTF-8. Wide
/// text that there is no memory to convert is left out.
void WriteDebugText(const unsigned short* text);
void WriteDebugText(const char* text);

}  // namespace ZBase::os
