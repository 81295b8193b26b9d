#include <DebugHelp/EngineStack.h>

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>
#include <cstddef>

#include <Base/platform/os/linux/processes/CancellationHeldBack.h>

namespace DebugHelp {

namespace {

constexpr std::size_t kRoomy = std::size_t{1} << 20;
constexpr std::size_t kGuard = std::size_t{1} << 16;

// A sanitizer takes another stack for an error.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

// For the first thread the limit of its growth; to ask for more reads /proc.
std::size_t StackSize() {
    if (gettid() == getpid()) {
        rlimit limit{};
        return getrlimit(RLIMIT_STACK, &limit) == 0 ? limit.rlim_cur : 0;
    }
    pthread_attr_t attributes;
    std::size_t size = 0;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
    pthread_attr_getstacksize(&attributes, &size);
    pthread_attr_destroy(&attributes);
    return size;
}

// Asked of one thread after the other, whose caller holds a lock. The answer for the last one is kept here
// and not in storage of the thread: the loader ends the process if it has no memory for that.
bool HasRoom() {
    if (kIsSanitized) return true;
    static pid_t sThread = 0;
    static pthread_t sSelf = 0;
    static bool sHasRoom = false;
    if (sThread != gettid() || sSelf != pthread_self()) {
        sThread = gettid();
        sSelf = pthread_self();
        sHasRoom = StackSize() >= kRoomy;
    }
    return sHasRoom;
}

// Of the one call, whose caller holds a lock.
ucontext_t sCaller;
ucontext_t sCall;
void (*sFunction)(void*);
void* sArgument;

void Enter() {
    const ZBase::os::CancellationHeldBack heldBack;  // elfutils would keep what it has half read
    sFunction(sArgument);
}

// Kept; its lowest pages stay without access.
char* Stack() {
    static char* sStack = nullptr;
    if (sStack != nullptr) return sStack;
    void* const pages =
        mmap(nullptr, kGuard + kRoomy, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    if (pages == MAP_FAILED) return nullptr;
    if (mprotect(static_cast<char*>(pages) + kGuard, kRoomy, PROT_READ | PROT_WRITE) != 0) {
        munmap(pages, kGuard + kRoomy);
        return nullptr;
    }
    sStack = static_cast<char*>(pages) + kGuard;
    return sStack;
}

}  // namespace

bool CallOnRoomyStack(void (*function)(void*), void* argument) {
    sFunction = function;
    sArgument = argument;
    if (HasRoom()) {
        Enter();
        return true;
    }
    char* const stack = Stack();
    if (stack == nullptr || getcontext(&sCall) != 0) return false;
    sCall.uc_stack.ss_sp = stack;
    sCall.uc_stack.ss_size = kRoomy;
    sCall.uc_link = &sCaller;
    makecontext(&sCall, Enter, 0);
    return swapcontext(&sCaller, &sCall) == 0;
}

}  // namespace DebugHelp
