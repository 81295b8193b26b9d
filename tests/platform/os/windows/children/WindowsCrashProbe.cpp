// WindowsCrashProbe KIND: installs the crash handler and crashes in one of many ways. The configuration comes
// from the environment.

#include <windows.h>

#include <Base/ZBase.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/children/PureVirtual.h"
#include "tests/children/StackOverflow.h"

namespace {

void* volatile gNull = nullptr;
volatile int gZero = 0;
volatile int gSink = 0;

[[gnu::noipa]] void WriteToNull() {
    *static_cast<volatile int*>(gNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] void ExhaustStack() {
    gSink = Overflow(0);
}

[[gnu::noipa]] void DivideByZero() {
    gSink = 1 / gZero;
}

[[gnu::noipa]] void CallNowhere() {
    reinterpret_cast<void (*)()>(gNull)();
    asm volatile("");
}

[[gnu::noipa]] void CallPureVirtual() {
    Whole whole;
    asm volatile("" : : "r"(&whole));
}

[[gnu::noipa]] void ThrowUncaught() {
    throw std::runtime_error("nobody catches this");
}

[[gnu::noipa]] void ThrowMessage() {
    throw ZBase::Message(ZBase::MESSAGE_DOMAIN_SERVER, 103, "names.txt is not a name.");
}

[[gnu::noipa]] void CrashOnThread(void (*crash)()) {
    std::thread([crash] {
        ZBase::InstallCrashStack();
        crash();
    }).join();
}

// The heap is another thread's for the rest of the process.
[[gnu::noipa]] void CrashWithHeapLocked() {
    static std::atomic<bool> sIsLocked = false;
    std::thread([] {
        while (!sIsLocked) Sleep(1);
        WriteToNull();
    }).detach();
    Sleep(100);  // it has what it needs of the heap then
    HeapLock(GetProcessHeap());
    sIsLocked = true;
    Sleep(60'000);
}

class CrashesAtExit {
public:
    bool mArmed = false;
    ~CrashesAtExit() {
        if (mArmed) WriteToNull();
    }
};
CrashesAtExit sCrashesAtExit;

bool CatchFault() {
    try {
        WriteToNull();
    } catch (const ZBase::StructuredException&) {
        return true;
    }
    return false;
}

std::size_t BusyBlocks() {
    HANDLE heaps[64];
    std::size_t blocks = 0;
    const DWORD count = std::min<DWORD>(GetProcessHeaps(64, heaps), 64);
    for (DWORD i = 0; i != count; ++i) {
        PROCESS_HEAP_ENTRY entry{};
        while (HeapWalk(heaps[i], &entry)) blocks += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0;
    }
    return blocks;
}

// What the handler sees of each fault must leave nothing behind either.
void CatchManyFaults() {
    constexpr int kWarmUp = 100;
    constexpr int kFaults = 100'000;
    constexpr std::size_t kOthers = 16;  // blocks of the system's threads
    int caught = 0;
    for (int i = 0; i != kWarmUp; ++i) CatchFault();
    const std::size_t before = BusyBlocks();
    for (int i = 0; i != kFaults; ++i) caught += CatchFault();
    const std::size_t after = BusyBlocks();
    std::printf("caught %d, blocks %s: %zu, %zu\n", caught, after <= before + kOthers ? "stay" : "grow",
                before, after);
}

void WriteDumps() {
    std::printf("%d%d\n", ZBase::CreateDump(), ZBase::CreateDump());
}

const std::map<std::string, void (*)()> kKinds = {
    {"null", WriteToNull},
    {"overflow", ExhaustStack},
    {"abort", std::abort},
    {"throw", ThrowUncaught},
    {"message", ThrowMessage},
    {"terminate", std::terminate},
    {"pure", CallPureVirtual},
    {"nowhere", CallNowhere},
    {"divide", DivideByZero},
    {"thread", [] { CrashOnThread(WriteToNull); }},
    {"thread-overflow", [] { CrashOnThread(ExhaustStack); }},
    {"thread-throw", [] { CrashOnThread(ThrowUncaught); }},
    {"heap", CrashWithHeapLocked},
    {"exit", [] { sCrashesAtExit.mArmed = true; }},
    {"demand", WriteDumps},
};

}  // namespace

int main(int count, char** arguments) {
    std::string kind = count > 1 ? arguments[1] : "";
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    // A translator that was set before the handler, or is set behind it, and what it does not catch.
    const bool isBefore = kind == "translated-before";
    const bool isBehind = kind == "translated-behind";
    if (isBefore) ZBase::SetExceptionTranslator();
    ZBase::SetCrashAttr("kind", kind.c_str(), true);
    if (!ZBase::InstallCrashHandler()) return 90;
    if (isBehind) ZBase::SetExceptionTranslator();
    if (isBefore || isBehind) {
        CatchManyFaults();
        CrashOnThread(WriteToNull);
    }
    ZBase::AddCrashNote("a note");
    const auto crash = kKinds.find(kind);
    if (crash == kKinds.end()) return 91;
    crash->second();
    return 0;
}
