// NoEntropyProbe: makes identifiers on a system without random numbers, or with their device only, and prints
// the result.

#include <Base/ZBase.h>

#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

bool gInterrupts = false;
bool gHasDevice = false;
int gAsked = 0;

}  // namespace

extern "C" ssize_t getrandom(void* octets, std::size_t size, unsigned int) noexcept {
    errno = gInterrupts ? EINTR : ENOSYS;
    if (!gInterrupts || ++gAsked < 3) return -1;
    std::memset(octets, 7, size);
    return static_cast<ssize_t>(size);
}

extern "C" int open(const char* path, int flags, ...) noexcept {
    if (!gHasDevice && std::strcmp(path, "/dev/urandom") == 0) {
        errno = ENOENT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, flags, 0));
}

namespace {

template <class Operation>
void Try(Operation operation) {
    try {
        operation();
        std::puts("made");
    } catch (const ZBase::Message& failure) {
        std::printf("%d %s\n", failure.GetID(), ZBase::WideCharToUTF8(failure.GetMessage(), true).c_str());
    }
}

}  // namespace

int main() {
    ZBase::_GUID guid{};
    Try([&] { ZBase::CreateGUID(guid); });
    Try([] { ZBase::GUID(); });
    gHasDevice = true;
    ZBase::_GUID other{};
    ZBase::CreateGUID(guid);
    ZBase::CreateGUID(other);
    std::printf("by the device %s of version %x, variant %x\n",
                ZBase::CompareGUID(guid, other) == 0 ? "twice" : "one",
                static_cast<unsigned int>(guid.Data3 >> 12), static_cast<unsigned int>(guid.Data4[0] >> 6));
    gHasDevice = false;
    gInterrupts = true;
    ZBase::CreateGUID(guid);
    std::puts("made after an interruption");
}
