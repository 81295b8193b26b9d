#include <Base/platform/os/stacks/RecordedStack.h>
#include <Base/platform/os/stacks/ThreadContext.h>

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

// Stacks of another thread, whatever it does and whichever lock it holds.

namespace {

using namespace ZBase;

class BusyThread {
public:
    explicit BusyThread(void (*work)()) : mThread([this, work] { Run(work); }) {
        while (mId == 0) ::Sleep(0);
        mpHandle = ::OpenThread(THREAD_ALL_ACCESS, FALSE, mId);
    }
    ~BusyThread() {
        mIsWanted = false;
        mThread.join();
        CloseHandle(mpHandle);
    }
    BusyThread(const BusyThread&) = delete;
    BusyThread& operator=(const BusyThread&) = delete;

    void* Handle() const { return mpHandle; }
    unsigned long Id() const { return mId; }

private:
    void Run(void (*work)()) {
        mId = GetCurrentThreadId();
        while (mIsWanted) work();
    }

    std::atomic<unsigned long> mId = 0;
    std::atomic<bool> mIsWanted = true;
    std::thread mThread;
    HANDLE mpHandle = nullptr;
};

// The number of frames; 0 if the state could not be had.
std::uint64_t Capture(void* thread, bool stops) {
    os::RecordedStack stack;
    os::ThreadContext context{};
    bool isKnown = true;
    do {
        context = {};
        context.contextFlags = os::kFullContext;
        if (stops) os::SuspendThread(thread);
        isKnown = os::GetThreadContext(thread, context);
        if (isKnown) stack.Record(thread, context);
        if (stops) os::ResumeThread(thread);
    } while (isKnown && stack.NeedsAnotherTry());
    return isKnown && context.parameterHome[0] == os::kRecordedFrames ? context.parameterHome[2] : 0;
}

void CaptureOften(void (*work)()) {
    constexpr int kTimes = 10'000;
    const BusyThread thread(work);
    int failed = 0;
    for (int i = 0; i != kTimes; ++i) failed += Capture(thread.Handle(), true) < 2;
    EXPECT_EQ(failed, 0);
}

void Allocate() {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i != 50; ++i) texts.emplace_back(100 + i, 'x');
}

void Load() {
    const HMODULE module = LoadLibraryW(L"winhttp.dll");
    if (module != nullptr) FreeLibrary(module);
}

TEST(RecordedStack, TenThousandOfAThreadThatAllocatesNeverHang) {
    CaptureOften(Allocate);
}

TEST(RecordedStack, TenThousandOfAThreadThatSleepsNeverHang) {
    CaptureOften([] { ::Sleep(1); });
}

TEST(RecordedStack, TenThousandOfAThreadThatSpinsNeverHang) {
    CaptureOften([] {});
}

TEST(RecordedStack, TenThousandOfAThreadThatLoadsNeverHang) {
    CaptureOften(Load);
}

TEST(RecordedStack, OfAThreadThatRunsOnEndsSomewhere) {
    const BusyThread thread(Allocate);
    void* const handle = os::OpenThread(os::kThreadGetContext, thread.Id());
    ASSERT_NE(handle, nullptr);
    EXPECT_FALSE(os::SuspendThread(handle));
    for (int i = 0; i != 300; ++i) EXPECT_GT(Capture(handle, false), 0U);
    os::CloseThread(handle);
}

TEST(RecordedStackSuspendThread, RefusesTheCallingThread) {
    void* const handle = ::OpenThread(THREAD_ALL_ACCESS, FALSE, GetCurrentThreadId());
    EXPECT_FALSE(os::SuspendThread(handle));
    os::ThreadContext context{};
    EXPECT_FALSE(os::GetThreadContext(handle, context));
    CloseHandle(handle);
}

TEST(RecordedStackOpenThread, GivesNullForNoThread) {
    EXPECT_EQ(os::OpenThread(os::kThreadGetContext, 0xFFFFFFF0), nullptr);
}

}  // namespace
