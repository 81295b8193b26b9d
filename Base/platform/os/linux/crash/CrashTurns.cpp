#include <Base/platform/os/linux/crash/CrashEquipment.h>
#include <Base/platform/os/linux/crash/CrashTurns.h>
#include <Base/platform/os/linux/memory/WipedMemory.h>
#include <Base/platform/os/processes/Threads.h>

#include <pthread.h>
#include <unistd.h>
#include <atomic>
#include <cstring>
#include <ctime>

namespace ZBase::os {

struct CrashTurns {
    std::atomic<pid_t> process;  // the owner of this memory
    std::atomic<pid_t> crash;    // the thread that crashed
    std::atomic<bool> isLeft;    // its crash is left to other handlers
    std::atomic<pid_t> guestCrash;
    std::atomic<pid_t> dump;  // the thread whose dump is being written
};

namespace {

// More than the limits of a crash together: its dump, and the upload.
constexpr int kCrashMilliseconds = 300'000;
constexpr int kDumpMilliseconds = 60'000;
constexpr int kPauseMilliseconds = 1;
constexpr int kPassedOnMilliseconds = 1000;

void Pause(int milliseconds) {
    const timespec pause{milliseconds / 1000, milliseconds % 1000 * 1'000'000L};
    nanosleep(&pause, nullptr);
}

bool Take(std::atomic<pid_t>& turn, int milliseconds) {
    const pid_t self = gettid();
    for (int waited = 0;; waited += kPauseMilliseconds) {
        pid_t holder = 0;
        if (turn.compare_exchange_strong(holder, self) || holder == self) return true;
        if (IsThreadGone(static_cast<unsigned long>(holder)) && turn.compare_exchange_strong(holder, self))
            return true;
        if (waited >= milliseconds) return false;
        Pause(kPauseMilliseconds);
    }
}

void BeginInChild() {
    std::memset(static_cast<void*>(gEquipment.turns), 0, sizeof *gEquipment.turns);
    gEquipment.turns->process = getpid();
}

}  // namespace

bool PrepareCrashTurns() {
    if (gEquipment.turns != nullptr) return true;
    gEquipment.turns = static_cast<CrashTurns*>(AllocateWipedMemory(sizeof(CrashTurns)));
    if (gEquipment.turns == nullptr) return false;
    gEquipment.turns->process = getpid();
    // A child cloned without the C library's `fork` is detected when it crashes.
    return pthread_atfork(nullptr, nullptr, BeginInChild) == 0;
}

bool IsGuest() {
    const pid_t self = getpid();
    pid_t process = 0;
    return !gEquipment.turns->process.compare_exchange_strong(process, self) && process != self;
}

bool TakeCrash() {
    if (IsGuest()) return Take(gEquipment.turns->guestCrash, kCrashMilliseconds);
    pid_t nobody = 0;
    return gEquipment.turns->crash.compare_exchange_strong(nobody, gettid());
}

void LeaveCrash() {
    if (IsGuest()) {
        gEquipment.turns->guestCrash = 0;
    } else {
        gEquipment.turns->isLeft = true;
    }
}

bool IsCrashing() {
    return !IsGuest() && gEquipment.turns->crash != 0 && !gEquipment.turns->isLeft;
}

void WaitForCrash() {
    if (!IsCrashing() || gEquipment.turns->crash == gettid()) return;
    for (int waited = 0; waited < kCrashMilliseconds && IsCrashing(); waited += kPauseMilliseconds)
        Pause(kPauseMilliseconds);
    // The handler that it is left to usually ends the process.
    Pause(kPassedOnMilliseconds);
}

bool TakeDump() {
    return Take(gEquipment.turns->dump, kDumpMilliseconds);
}

void LeaveDump() {
    gEquipment.turns->dump = 0;
}

}  // namespace ZBase::os
