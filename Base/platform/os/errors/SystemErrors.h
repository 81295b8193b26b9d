#pragma once

namespace ZBase::os {

/// The last system code of the calling thread: a Win32 code, on every platform. Each call of the seam that
/// fails sets it.
unsigned int GetLastCode();
void SetLastCode(unsigned int code);

/// Writes the description of `code`, or of the Win32 code in an `HRESULT` or `NTSTATUS`, in `language` (0:
/// the system's own) and a terminator into `buffer`, which has space for `capacity` units. Returns the units
/// written before the terminator. 0 is a failure: last code 317 when the code has no text in that language,
/// 122 when the buffer is too small.
unsigned int FormatSystemMessage(unsigned int code, unsigned short language, unsigned short* buffer,
                                 unsigned int capacity);

/// The same for narrow text.
unsigned int FormatSystemMessage(unsigned int code, unsigned short language, char* buffer,
                                 unsigned int capacity);

/// The C library's English description of an error number, or null; static text.
const char* DescribeErrorNumber(int errorNumber);

}  // namespace ZBase::os
