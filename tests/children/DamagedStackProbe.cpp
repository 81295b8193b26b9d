// DamagedStackProbe [VALUE]: damages its own stack, so that a frame links to itself, and prints the number of
// lines of a capture; or puts a value in place of a caller's frame pointer, and walks.

#include <Base/ZBase.h>

#include <sys/mman.h>
#include <unistd.h>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void StayHere() {
    asm volatile("" ::: "memory");
}

[[gnu::noinline]] void Capture() {
    ZBase::CallStack* stack = ZBase::CreateCallStack(nullptr);
    std::printf("%u lines\n", stack->GetLineCount());
    stack->Delete();
    StayHere();
}

// Built with frame pointers: *frame pointer is the caller's, and the return address follows it.
[[gnu::noinline]] void CallDamaged(int depth) {
    if (depth != 0) {
        CallDamaged(depth - 1);
        StayHere();
        return;
    }
    auto** const own = static_cast<void**>(__builtin_frame_address(0));
    auto** const callers = static_cast<void**>(own[0]);
    void* saved[2];
    std::memcpy(saved, callers, sizeof saved);
    callers[0] = own;
    callers[1] = own[1];
    StayHere();
    Capture();
    std::memcpy(callers, saved, sizeof saved);
    StayHere();
}

[[gnu::noinline]] void Walk() {
    std::uint64_t found[40] = {};
    ZBase::gDbgHelpBuilder.DoStackWalk(found, 40, 0);
    std::puts(found[1] == 0 ? "nothing" : "walked");
    StayHere();
}

[[gnu::noinline]] void WalkDamaged(int depth, std::uint64_t value) {
    if (depth != 0) {
        WalkDamaged(depth - 1, value);
        StayHere();
        return;
    }
    auto** const own = static_cast<void**>(__builtin_frame_address(0));
    void* const saved = own[0];
    own[0] = reinterpret_cast<void*>(value);
    StayHere();
    Walk();
    own[0] = saved;
    StayHere();
}

std::uint64_t ValueOf(const std::string& name, const void* here) {
    constexpr std::size_t kPage = 4096;
    char* const pages = static_cast<char*>(
        mmap(nullptr, 3 * kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    munmap(pages, kPage);
    mprotect(pages + kPage, kPage, PROT_NONE);
    const auto place = reinterpret_cast<std::uint64_t>(here);
    if (name == "hole") return reinterpret_cast<std::uint64_t>(pages);
    if (name == "closed") return reinterpret_cast<std::uint64_t>(pages + kPage);
    if (name == "heap") return reinterpret_cast<std::uint64_t>(std::calloc(100, 8));
    if (name == "below") return place - (1 << 20);
    if (name == "above") return place + (1 << 20);
    if (name == "itself") return place;
    return static_cast<std::uint64_t>(std::strtoull(name.c_str(), nullptr, 0));
}

}  // namespace

int main(int argc, char** argv) {
    alarm(20);
    int here = 0;
    if (argc > 1)
        WalkDamaged(3, ValueOf(argv[1], &here));
    else
        CallDamaged(3);
}
