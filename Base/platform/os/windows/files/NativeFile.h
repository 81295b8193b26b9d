#pragma once

#include <windows.h>

#include <cstddef>

namespace ZBase::os {

// Files for the path of a crash. The usual calls take the heap for the name of a file, which another thread
// may have locked for ever. Paths are absolute. No heap, no lock; one thread at a time. Failures leave the
// last code.

/// For reading and writing, so that others may too; `creation` as for `CreateFileW`: CREATE_NEW or
/// OPEN_EXISTING. Links are not followed.
HANDLE OpenNativeFile(const wchar_t* path, DWORD creation, SECURITY_DESCRIPTOR* owner);

/// A name in the system's own form.
struct NativeName {
    static constexpr std::size_t kLongest = 0x7FF0;  // units

    wchar_t units[kLongest + 16];
};

/// For writing, a new file or an empty one. On any thread: the name is made in `room`.
HANDLE MakeNativeFile(const wchar_t* path, NativeName& room);

/// Makes a directory; true if it is there already.
bool MakeNativeDirectory(const wchar_t* path, SECURITY_DESCRIPTOR* owner);

enum class EPlace { eDirectory, eOther, eNothing };
EPlace LookAtNativePlace(const wchar_t* path);

bool DeleteNativeFile(const wchar_t* path);

}  // namespace ZBase::os
