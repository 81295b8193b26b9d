// A snapshot begins `kDroppedFrames` inside the caller of the factory, and the walk drops as many: those of
// `CallStackImp`, and those of the system's `CallWithOwnContext`. None of them may be inlined or become a
// jump.

#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <Base/diagnostics/detail/CallStackImp.h>
#include <Base/platform/os/processes/Threads.h>
#include <Base/platform/os/stacks/RecordedStack.h>
#include <Base/platform/os/stacks/ThreadContext.h>

#include <cstring>
#include <memory>
#include <new>

// Compilers need different attributes to keep a function whole, also with link-time optimisation.
#if defined(__GNUC__) && !defined(__clang__)
#define ZBASE_OWN_FRAME [[gnu::noipa]]
#else
#define ZBASE_OWN_FRAME [[gnu::noinline]]
#endif

namespace ZBase {

namespace {

/// The register state is a copy, since the walk changes it.
void Build(std::vector<CallStackLineImp>& lines, os::ThreadContext context) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    gDbgHelpBuilder.BuildCallStack(lines, context);
}

struct Suspension {
    explicit Suspension(void* handle) : thread(handle) { os::SuspendThread(thread); }
    ~Suspension() { os::ResumeThread(thread); }
    Suspension(const Suspension&) = delete;
    Suspension& operator=(const Suspension&) = delete;

    void* thread;
};

/// The thread resumes before anything is looked up: while it is stopped it may hold locks of the heap or the
/// loader.
void BuildSuspended(std::vector<CallStackLineImp>& lines, void* thread) {
    os::ThreadContext context{};
    os::RecordedStack stack;
    do {
        context = {};
        context.contextFlags = os::kFullContext;
        const Suspension suspension(thread);
        if (!os::GetThreadContext(thread, context)) return;
        stack.Record(thread, context);
    } while (stack.NeedsAnotherTry());
    Build(lines, context);
}

}  // namespace

CallStackImp::CallStackCriticalSection::CallStackCriticalSection() {
    ::new (mStorage) std::recursive_mutex;
}

CallStackImp::CallStackCriticalSection::~CallStackCriticalSection() {
    std::destroy_at(&Mutex());
}

CallStackImp::CallStackCriticalSection& CallStackImp::CallStackCriticalSection::operator=(
    const CallStackCriticalSection& other) {
    if (this != &other) std::memcpy(mStorage, other.mStorage, sizeof mStorage);
    return *this;
}

void CallStackImp::CallStackCriticalSection::Lock() {
    Mutex().lock();
}

void CallStackImp::CallStackCriticalSection::Unlock() {
    Mutex().unlock();
}

std::recursive_mutex& CallStackImp::CallStackCriticalSection::Mutex() {
    return *std::launder(reinterpret_cast<std::recursive_mutex*>(mStorage));
}

ZBASE_OWN_FRAME CallStackImp::CallStackImp(void* thread) {
    const CallStackGuard guard(gCallStackLock);
    if (thread != nullptr)
        CaptureThreadByHandle(thread);
    else
        CaptureCurrentThread();
}

// Registers read of the calling thread would be those of the reading call, whose frames are gone by the walk.
ZBASE_OWN_FRAME CallStackImp::CallStackImp(unsigned long threadId) {
    const CallStackGuard guard(gCallStackLock);
    if (threadId != os::CurrentThreadId())
        CaptureThreadById(threadId);
    else
        CaptureCurrentThread();
}

ZBASE_OWN_FRAME void CallStackImp::CaptureCurrentThread() {
    // Its address escapes, so the call below can't become a tail call.
    struct Capture {
        std::vector<CallStackLineImp>& lines;
    } capture{mLines};
    os::CallWithOwnContext(
        [](void* argument, os::ThreadContext& context) {
            Build(static_cast<Capture*>(argument)->lines, context);
        },
        &capture);
}

void CallStackImp::CaptureThreadByHandle(void* thread) {
    BuildSuspended(mLines, thread);
}

// The handle has no right but to read the state, so the thread is not stopped; kept for callers that must not
// stop it.
void CallStackImp::CaptureThreadById(unsigned long threadId) {
    struct Handle {
        void* thread;
        ~Handle() {
            if (thread != nullptr) os::CloseThread(thread);
        }
    } const handle{os::OpenThread(os::kThreadGetContext, threadId)};
    BuildSuspended(mLines, handle.thread);
}

void CallStackImp::Delete() {
    // Null is allowed; volatile stops the compiler from assuming this != nullptr.
    CallStackImp* volatile object = this;
    delete object;
}

const unsigned short* CallStackImp::ToString() {
    if (!mLines.empty()) {
        WideString text = mLines[0].GetText();
        for (std::size_t i = 1; i != mLines.size(); ++i) {
            text += static_cast<unsigned short>('\n');
            text += mLines[i].GetText();
        }
        mText = std::move(text);
    }
    return mText.c_str();
}

ZBASE_OWN_FRAME CallStack* CreateCallStack(void* thread) {
    return new (std::nothrow) CallStackImp(thread);
}

ZBASE_OWN_FRAME CallStack* CreateCallStackByThreadId(unsigned long threadId) {
    return new (std::nothrow) CallStackImp(threadId);
}

}  // namespace ZBase
