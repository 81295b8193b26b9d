#include <Base/platform/os/faults/Callers.h>
#include <Base/platform/os/faults/Faults.h>

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <thread>

// Faults as exceptions, on the system's own dispatch.

namespace {

using ZBase::os::SetFaultTranslator;

struct Fault {
    unsigned int code;
};

void Throw(unsigned int code, void*) {
    throw Fault{code};
}

volatile int* volatile gNull = nullptr;
volatile int gZero = 0;

struct Counted {
    int& count;
    ~Counted() { ++count; }
};

[[gnu::noipa]] int ReadNull(int& cleanUps) {
    const Counted counted{cleanUps};
    return *gNull;
}

// Keeps no frame.
[[gnu::noipa]] int ReadPlainly(const volatile int* place) {
    return *place;
}

[[gnu::noipa]] int ReadNullInLeaf(int& cleanUps) {
    const Counted counted{cleanUps};
    return ReadPlainly(gNull) + 1;
}

// 0 if nothing was thrown.
template <class Function>
[[gnu::noipa]] unsigned int CodeOf(Function function) {
    try {
        function();
    } catch (const Fault& fault) {
        return fault.code;
    }
    return 0;
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

TEST(FaultsTranslator, UnwindsTheFrameThatFaulted) {
    SetFaultTranslator(Throw);
    int cleanUps = 0;
    EXPECT_EQ(CodeOf([&] { ReadNull(cleanUps); }), 0xC0000005);
    EXPECT_EQ(cleanUps, 1);
}

TEST(FaultsTranslator, UnwindsTheCallerOfALeaf) {
    SetFaultTranslator(Throw);
    int cleanUps = 0;
    EXPECT_EQ(CodeOf([&] { ReadNullInLeaf(cleanUps); }), 0xC0000005);
    EXPECT_EQ(cleanUps, 1);
}

TEST(FaultsTranslator, FindsTheCallerOfNoCode) {
    SetFaultTranslator(Throw);
    const auto nowhere = reinterpret_cast<void (*)()>(const_cast<int*>(gNull));
    EXPECT_EQ(CodeOf([&] { nowhere(); }), 0xC0000005);
    EXPECT_EQ(CodeOf([] { reinterpret_cast<void (*)()>(std::uintptr_t{0x1234'5678'9000})(); }), 0xC0000005);
}

TEST(FaultsTranslator, GivesTheSystemsCodes) {
    SetFaultTranslator(Throw);
    EXPECT_EQ(CodeOf([] { gZero = 5 / gZero; }), 0xC0000094);
    EXPECT_EQ(CodeOf([] { asm volatile("int3"); }), 0x80000003);
    EXPECT_EQ(CodeOf([] { asm volatile("ud2"); }), 0xC000001D);
    EXPECT_EQ(CodeOf([] { asm volatile("hlt"); }), 0xC0000096);
    EXPECT_EQ(CodeOf([] { RaiseException(0xC0001234, 0, 0, nullptr); }), 0xC0001234);
}

TEST(FaultsTranslator, LeavesToTheSystemWhatItGuards) {
    SetFaultTranslator(Throw);
    EXPECT_TRUE(IsBadReadPtr(reinterpret_cast<const void*>(8), 4));
    OutputDebugStringA("told to a debugger by an exception\n");
}

TEST(FaultsTranslator, IsOfOneThread) {
    SetFaultTranslator(Throw);
    EXPECT_EQ(CodeOf([] { RaiseException(0xC0001234, 0, 0, nullptr); }), 0xC0001234);
    bool isSeen = false;
    std::thread([&] {
        static thread_local bool* tIsSeen = nullptr;
        tIsSeen = &isSeen;
        void* const handler = AddVectoredExceptionHandler(0, [](EXCEPTION_POINTERS* pointers) -> LONG {
            if (pointers->ExceptionRecord->ExceptionCode != 0xC0001235) return EXCEPTION_CONTINUE_SEARCH;
            *tIsSeen = true;
            return EXCEPTION_CONTINUE_EXECUTION;
        });
        RaiseException(0xC0001235, 0, 0, nullptr);
        RemoveVectoredExceptionHandler(handler);
    }).join();
    EXPECT_TRUE(isSeen);
}

TEST(FaultsTranslator, ClearsWhatTheFloatingPointUnitsSay) {
    SetFaultTranslator(Throw);
    const unsigned int before = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr(before & ~0x200U);  // a division by zero faults
    volatile double zero = 0;
    volatile double one = 1;
    EXPECT_EQ(CodeOf([&] { one = one / zero; }), 0xC000008E);
    EXPECT_EQ(__builtin_ia32_stmxcsr() & 0x3FU, 0U);
    __builtin_ia32_ldmxcsr(before);
}

TEST(FaultsTranslator, HundredThousandFaultsLeaveNoBlockBehind) {
    SetFaultTranslator(Throw);
    int cleanUps = 0;
    for (int i = 0; i != 100; ++i) CodeOf([&] { ReadNull(cleanUps); });
    const std::size_t before = BusyBlocks();
    for (int i = 0; i != 100'000; ++i) CodeOf([&] { ReadNull(cleanUps); });
    EXPECT_EQ(cleanUps, 100'100);
    EXPECT_LE(BusyBlocks(), before + 16);
}

[[gnu::noipa]] bool IsCalledFromItself() {
    const bool isSo = ZBase::os::IsCalledFrom(reinterpret_cast<const void*>(&IsCalledFromItself));
    asm volatile("" : : : "memory");  // a call, and no jump
    return isSo;
}

TEST(FaultsCallers, KnowsAFunctionOnTheStack) {
    EXPECT_TRUE(IsCalledFromItself());
    EXPECT_FALSE(ZBase::os::IsCalledFrom(reinterpret_cast<const void*>(&IsCalledFromItself)));
    ZBase::os::PrepareCallers();
    EXPECT_FALSE(ZBase::os::MayHoldAllocator());
}

}  // namespace
