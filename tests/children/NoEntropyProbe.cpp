// NoEntropyProbe: makes identifiers on a system without random numbers, and prints the result.

#include <Base/ZBase.h>

#include <sys/types.h>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

bool gInterrupts = false;
int gAsked = 0;

}  // namespace

extern "C" ssize_t getrandom(void* octets, std::size_t size, unsigned int) noexcept {
    errno = gInterrupts ? EINTR : ENOSYS;
    if (!gInterrupts || ++gAsked < 3) return -1;
    std::memset(octets, 7, size);
    return static_cast<ssize_t>(size);
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
    gInterrupts = true;
    ZBase::CreateGUID(guid);
    std::puts("made after an interruption");
}
