#pragma once

#include <windows.h>

namespace ZBase::os {

/// Takes the lock by which a file is held, far behind all octets that it could have; it ends with the handle.
/// False if another one has it. No heap, no lock of this process.
inline bool LockFarOut(HANDLE file) {
    constexpr DWORD kHighHalfOfPlace = 0x40000000;
    OVERLAPPED place{};
    place.OffsetHigh = kHighHalfOfPlace;
    return LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place) != 0;
}

}  // namespace ZBase::os
