#include <Base/platform/os/linux/crash/CrashReserve.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstddef>

namespace ZBase::os {

namespace {

constexpr std::size_t kReservedMemory = 32 << 20;  // a dump copies each stack, up to 16 MiB

}  // namespace

// A server that closes all it has may use the number for something else.
bool CrashReserve::IsHeld(int descriptor) const {
    struct stat file {};
    return descriptor >= 0 && fstat(descriptor, &file) == 0 && file.st_rdev == mDevice;
}

void CrashReserve::Take() {
    if (mpMemory == nullptr) {
        void* const memory =
            mmap(nullptr, kReservedMemory, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (memory != MAP_FAILED) mpMemory = memory;
    }
    for (int& descriptor : mDescriptors) {
        if (IsHeld(descriptor)) continue;
        descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        struct stat file {};
        if (descriptor >= 0 && fstat(descriptor, &file) == 0) mDevice = file.st_rdev;
    }
}

void CrashReserve::LetGo(bool isGuest) {
    if (!isGuest && mpMemory != nullptr) {
        munmap(mpMemory, kReservedMemory);
        mpMemory = nullptr;
    }
    for (int& descriptor : mDescriptors) {
        if (IsHeld(descriptor)) close(descriptor);
        if (!isGuest) descriptor = -1;
    }
}

}  // namespace ZBase::os
