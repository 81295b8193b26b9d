#include <Base/platform/os/processes/Patience.h>
#include <Base/platform/os/processes/Threads.h>
#include <Base/platform/os/windows/crash/CrashEquipment.h>
#include <Base/platform/os/windows/crash/CrashTurns.h>

#include <windows.h>

namespace ZBase::os {

namespace {

// More than all that is bounded in a crash: its dump, and the upload.
constexpr DWORD kCrashMilliseconds = 300'000;
constexpr DWORD kDumpMilliseconds = 60'000;
constexpr DWORD kPassedOnMilliseconds = 1000;

}  // namespace

bool TakeCrash() {
    DWORD nobody = 0;
    return gEquipment.crash.compare_exchange_strong(nobody, GetCurrentThreadId());
}

void LeaveCrash() {
    gEquipment.isLeft = true;
}

bool IsCrashing() {
    return gEquipment.crash != 0 && !gEquipment.isLeft;
}

bool IsCrashOfThisThread() {
    return IsCrashing() && gEquipment.crash == GetCurrentThreadId();
}

void WaitForCrash() {
    if (!IsCrashing() || IsCrashOfThisThread()) return;
    Patience(kCrashMilliseconds).Until([] { return !IsCrashing(); });
    // Whoever it is left to ends the process, in most cases.
    Sleep(kPassedOnMilliseconds);
}

bool TakeDump() {
    const DWORD self = GetCurrentThreadId();
    return Patience(kDumpMilliseconds).Until([self] {
        DWORD holder = 0;
        // At the end of a process the other threads are gone before its libraries.
        return gEquipment.dump.compare_exchange_strong(holder, self) ||
               (IsThreadGone(holder) && gEquipment.dump.compare_exchange_strong(holder, self));
    });
}

void LeaveDump() {
    gEquipment.dump = 0;
}

}  // namespace ZBase::os
