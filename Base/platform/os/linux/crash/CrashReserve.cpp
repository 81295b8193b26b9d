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

void CrashReserve::Take() {
    if (mpMemory != nullptr) return;
    void* memory =
        mmap(nullptr, kReservedMemory, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory != MAP_FAILED) mpMemory = memory;
    for (int& descriptor : mDescriptors) descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    struct stat file {};
    if (mDescriptors[0] >= 0 && fstat(mDescriptors[0], &file) == 0) mDevice = file.st_rdev;
}

void CrashReserve::LetGo(bool isGuest) {
    if (mpMemory == nullptr) return;
    if (!isGuest) {
        munmap(mpMemory, kReservedMemory);
        mpMemory = nullptr;
    }
    for (const int descriptor : mDescriptors) {
        struct stat file {};  // a server that closes all it has may use the number for something else
        if (descriptor >= 0 && fstat(descriptor, &file) == 0 && file.st_rdev == mDevice) close(descriptor);
    }
}

}  // namespace ZBase::os
