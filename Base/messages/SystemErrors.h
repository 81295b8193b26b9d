#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

// Descriptions and symbols of the numbers that the system reports. A system code is a Win32 code on every
// platform; a C library error number is the `errno` of this one for its description, and has the symbol that
// the number has on Windows. Throw `std::bad_alloc`.

/// The last system code of the calling thread.
ZBASE_API unsigned int GetLastError();

/// A line such as "System Error 0x00000005 (5): --- Access is denied."; "Unknown error." stands for a missing
/// description. Never null.
ZBASE_API ReturnWString GetSystemErrorDescription(unsigned int code);

/// Whether there is a description for a system code. Changes the last system code of the thread.
ZBASE_API bool IsSystemError(unsigned int code);

/// The description of a system code, in a language by its Windows id, 0 being the system's own; null if there
/// is none.
ZBASE_API ReturnWString GetWin32APIErrorDescriptionOrNULL(unsigned int code, unsigned short language);

/// The C library's description of an error number, or null.
ZBASE_API ReturnWString GetStandardCLibraryErrorDescriptionOrNULL(int errorNumber);

/// The symbol of an error number, such as "ENOENT"; null, or the number as decimal text, if it has none.
ZBASE_API ReturnString GetStandardCLibraryErrorSymbolOrNULL(int errorNumber);
ZBASE_API ReturnString GetStandardCLibraryErrorSymbolOrDecimalString(int errorNumber);

/// The symbol of an exception code, such as "EXCEPTION_ACCESS_VIOLATION"; null, or "0x" and eight digits, if
/// it has none.
ZBASE_API ReturnString GetWin32ExceptionSymbolOrNULL(unsigned int code);
ZBASE_API ReturnString GetWin32ExceptionSymbolOrHexUpperString(unsigned int code);

}  // namespace ZBase
