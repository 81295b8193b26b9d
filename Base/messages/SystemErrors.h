#pragma once

#include <Base/frame/Api.h>
#include <Base/frame/ReturnString.h>
#include <Base/frame/ReturnWString.h>

namespace ZBase {

// Descriptions and symbols of the numbers that the system reports. A system code is a Win32 code on every
// platform, alone or in the form of an `HRESULT` (0x8007000E is 14) or an `NTSTATUS` (0xC007000E). Throw
// `std::bad_alloc`.
//
// A C library error number is described as this system's C library does, but its symbol is the one that the
// number has in the library's own table, whatever the system. Up to 34 they do not contradict each other on
// Linux. Above they do: 36 is "EDEADLK" and "File name too long", 38 "ENAMETOOLONG" and "Function not
// implemented", 39 "ENOLCK" and "Directory not empty", 40 "ENOSYS" and "Too many levels of symbolic links",
// 42 "EILSEQ" and "No message of desired type"; 41 and 139 have a symbol alone, 35, 37 and all others a
// description alone. The symbol is for comparing and logging across systems, the description for who reads it
// here.

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
