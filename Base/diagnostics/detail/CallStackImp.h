#pragma once

#include <Base/diagnostics/CallStack.h>
#include <Base/diagnostics/detail/CallStackLineImp.h>
#include <Base/frame/Api.h>
#include <Base/frame/WideString.h>

#include <mutex>
#include <vector>

namespace ZBase {

namespace detail {
struct HeldAtFork;
}

/// Frames of a snapshot above `CallWithOwnContext`: the factory, the constructor, `CaptureCurrentThread`.
inline constexpr unsigned int kFramesOfSnapshot = 3;

class CallStackImp final : public CallStack {
public:
    /// A recursive lock. Assignment copies its raw octets, without locking.
    class ZBASE_API CallStackCriticalSection {
    public:
        CallStackCriticalSection();
        ~CallStackCriticalSection();
        CallStackCriticalSection& operator=(const CallStackCriticalSection& other);
        void Lock();
        void Unlock();

    private:
        friend detail::HeldAtFork;

        std::recursive_mutex& Mutex();

        alignas(std::recursive_mutex) unsigned char mStorage[sizeof(std::recursive_mutex)];
    };

    explicit CallStackImp(void* thread);
    explicit CallStackImp(unsigned long threadId);

    CallStackLine& GetLine(unsigned int index) override { return mLines[index]; }
    unsigned int GetLineCount() override { return static_cast<unsigned int>(mLines.size()); }
    void Delete() override;
    const unsigned short* ToString() override;

    const std::vector<CallStackLineImp>& Lines() const { return mLines; }

private:
    void CaptureCurrentThread();
    void CaptureThreadByHandle(void* thread);
    void CaptureThreadById(unsigned long threadId);

    std::vector<CallStackLineImp> mLines;
    WideString mText;
};

/// Held while a stack is captured, with all its look-ups.
extern CallStackImp::CallStackCriticalSection gCallStackLock;

/// Held while a tracer records a change; taken before `gCallStackLock`.
extern CallStackImp::CallStackCriticalSection gTracerLock;

/// Holds one of them for a scope.
class CallStackGuard {
public:
    explicit CallStackGuard(CallStackImp::CallStackCriticalSection& section) : mSection(section) {
        mSection.Lock();
    }
    ~CallStackGuard() { mSection.Unlock(); }
    CallStackGuard(const CallStackGuard&) = delete;
    CallStackGuard& operator=(const CallStackGuard&) = delete;

private:
    CallStackImp::CallStackCriticalSection& mSection;
};

}  // namespace ZBase
