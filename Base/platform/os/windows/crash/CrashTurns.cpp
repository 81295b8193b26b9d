#include <Base/platform/os/windows/crash/CrashTurns.h>

#include <windows.h>

#include <atomic>

namespace ZBase::os {

namespace {

// More than all that is bounded in a crash: its dump, and the upload.
constexpr DWORD kCrashMilliseconds = 300'000;
constexpr DWORD kDumpMilliseconds = 60'000;
constexpr DWORD kPassedOnMilliseconds = 1000;

std::atomic<DWORD> sCrash{0};  // the thread that crashed
std::atomic<bool> sIsLeft{false};
std::atomic<DWORD> sDump{0};  // the thread whose dump is being written

}  // namespace

bool TakeCrash() {
    DWORD nobody = 0;
    return sCrash.compare_exchange_strong(nobody, GetCurrentThreadId());
}

void LeaveCrash() {
    sIsLeft = true;
}

bool IsCrashing() {
    return sCrash != 0 && !sIsLeft;
}

bool IsCrashOfThisThread() {
    return IsCrashing() && sCrash == GetCurrentThreadId();
}

void WaitForCrash() {
    if (!IsCrashing() || IsCrashOfThisThread()) return;
    for (DWORD waited = 0; waited < kCrashMilliseconds && IsCrashing(); ++waited) Sleep(1);
    // Whoever it is left to ends the process, in most cases.
    Sleep(kPassedOnMilliseconds);
}

bool TakeDump() {
    const DWORD self = GetCurrentThreadId();
    for (DWORD waited = 0;; ++waited) {
        DWORD nobody = 0;
        if (sDump.compare_exchange_strong(nobody, self)) return true;
        if (waited == kDumpMilliseconds) return false;
        Sleep(1);
    }
}

void LeaveDump() {
    sDump = 0;
}

}  // namespace ZBase::os
