#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

// Descriptions and symbols of the numbers that the system reports. A system code is a Win32 code on every
// platform, alone or in the form of an `HRESULT` (0x8007000E is 14) or an `NTSTATUS` (0xC007000E). Throw
// `std::bad_alloc`.
//
// A C library error number has the description of this system's C library, but the symbol of the library's
// own table, which is the same on every system. Up to 34 they agree on Linux. Above, 36, 38, 39, 40 and 42
// are two different errors (36 is "EDEADLK" and "File name too long"); 41 and 139 have only a symbol, 35, 37
// and all others only a description. Use the symbol to compare and log across systems, the description for a
// reader on this one.

/// The last system code of the calling thread.
ZBASE_API unsigned int GetLastError();

/// A line such as "System Error 0x00000005 (5): --- Access is denied."; "Unknown error." stands for a missing
/// description. Never null.
ZBASE_API ReturnWString GetSystemErrorDescription(unsigned int code);

/// Whether there is a description for a system code. Sets the last system code of the thread.
ZBASE_API bool IsSystemError(unsigned int code);

/// The description of a system code, in a language by its Windows id, 0 for the system's own; null if there
/// is none.
ZBASE_API ReturnWString GetWin32APIErrorDescriptionOrNULL(unsigned int code, unsigned short language);

/// This system's C library's description of an error number, or null.
ZBASE_API ReturnWString GetStandardCLibraryErrorDescriptionOrNULL(int errorNumber);

/// The symbol of an error number in the library's table, such as "ENOENT"; null, or the number as decimal
/// text, if it has none.
ZBASE_API ReturnString GetStandardCLibraryErrorSymbolOrNULL(int errorNumber);
ZBASE_API ReturnString GetStandardCLibraryErrorSymbolOrDecimalString(int errorNumber);

/// The symbol of an exception code, such as "EXCEPTION_ACCESS_VIOLATION"; null, or "0x" and eight digits, if
/// it has none.
ZBASE_API ReturnString GetWin32ExceptionSymbolOrNULL(unsigned int code);
ZBASE_API ReturnString GetWin32ExceptionSymbolOrHexUpperString(unsigned int code);

}  // namespace ZBase
