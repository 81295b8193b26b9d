#include <Base/diagnostics/DbgHelpBuilder.h>
#include <TestPlaces.h>
#include <alloca.h>
#include <dlfcn.h>
#include <execinfo.h>
#include <gtest/gtest.h>
#include <sys/auxv.h>
#include <ucontext.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/diagnostics/Recurse.h"
#include "tests/support/Allocations.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/Stacks.h"

using test::CountFound;
using test::StayHere;
using ZBase::gDbgHelpBuilder;

struct Walk {
    std::uint64_t found[64] = {};
    void* expected[64] = {};
    int expectedCount = 0;
};

// Both are called from one function, so their outer frames are the same.
[[gnu::noinline]] int WalkBoth(void* argument) {
    auto& walk = *static_cast<Walk*>(argument);
    walk.expectedCount = backtrace(walk.expected, 40);
    gDbgHelpBuilder.DoStackWalk(walk.found, 40, 1);
    StayHere();
    return 0;
}

// Its stack is realigned, so CFA = *(frame pointer + offset).
[[gnu::noinline]] int Realigned(int (*innermost)(void*), void* argument) {
    alignas(64) volatile char room[128];
    room[0] = 1;
    const int result = innermost(argument);
    StayHere();
    return result + room[0];
}

[[gnu::noinline]] int OfVariableSize(std::size_t size, int (*innermost)(void*), void* argument) {
    auto* room = static_cast<volatile char*>(alloca(size));
    room[0] = 1;
    const int result = innermost(argument);
    StayHere();
    return result + room[0];
}

// Both, so that the frame pointer is not at a constant distance from the frame either.
[[gnu::noinline]] int RealignedOfVariableSize(std::size_t size, int (*innermost)(void*), void* argument) {
    alignas(64) volatile char aligned[128];
    auto* room = static_cast<volatile char*>(alloca(size));
    aligned[0] = 1;
    room[0] = 1;
    const int result = innermost(argument);
    StayHere();
    return result + room[0] + aligned[0];
}

// The bytes before its first instruction have no unwind rules.
asm(R"(
    .text
    .skip 16, 0x90
FaultsAtOnce:
    .cfi_startproc
    ud2
    ret
    .cfi_endproc
)");
extern "C" void FaultsAtOnce();

// Frames that are found by RBX, from within a function that has it in another register, or has lost it and
// knows only that it is the place of its own frame.
asm(R"(
    .macro FRAME name, inner, room
\name:
    .cfi_startproc
    push %rbx
    .cfi_def_cfa_offset 16
    .cfi_offset %rbx, -16
    mov %rsp, %rbx
    .cfi_def_cfa_register %rbx
    sub $\room, %rsp
    call \inner
    mov %rbx, %rsp
    .cfi_def_cfa %rsp, 16
    pop %rbx
    .cfi_def_cfa_offset 8
    ret
    .cfi_endproc
    .endm
    .text
    FRAME AroundOneInAnotherRegister, KeepsItInAnotherRegister, 80
    FRAME AroundOneAtAPlace, KnowsItsPlace, 0
KeepsItInAnotherRegister:
    .cfi_startproc
    push %r12
    .cfi_def_cfa_offset 16
    .cfi_offset %r12, -16
    mov %rbx, %r12
    .cfi_register %rbx, %r12
    xor %ebx, %ebx
    mov %rdi, %rax
    mov %rsi, %rdi
    call *%rax
    mov %r12, %rbx
    .cfi_restore %rbx
    pop %r12
    .cfi_def_cfa_offset 8
    ret
    .cfi_endproc
KnowsItsPlace:
    .cfi_startproc
    sub $8, %rsp
    .cfi_def_cfa_offset 16
    .cfi_escape 0x14, 3, 0
    xor %ebx, %ebx
    mov %rdi, %rax
    mov %rsi, %rdi
    call *%rax
    lea 16(%rsp), %rbx
    .cfi_restore %rbx
    add $8, %rsp
    .cfi_def_cfa_offset 8
    ret
    .cfi_endproc
)");
extern "C" int AroundOneInAnotherRegister(int (*innermost)(void*), void* argument);
extern "C" int AroundOneAtAPlace(int (*innermost)(void*), void* argument);

namespace {

constexpr int kSanitizersFrames = test::kIsSanitized ? 1 : 0;

void ExpectAgreement(const Walk& walk) {
    ASSERT_GT(walk.expectedCount, 3);
    // The first is in WalkBoth for both, at another call. A sanitizer has a frame of its own before it.
    const int own =
        reinterpret_cast<std::uint64_t>(walk.expected[1]) == walk.found[1] ? 0 : kSanitizersFrames;
    for (int i = 1; i + own < walk.expectedCount && i < 39; ++i)
        EXPECT_EQ(walk.found[i], reinterpret_cast<std::uint64_t>(walk.expected[i + own])) << i;
}

TEST(StackWalkFrames, AgreeWithTheSystemsOwn) {
    for (int round = 0; round != 2; ++round) {  // the second from the cache
        for (const int depth : {0, 1, 5, 20, 60}) {
            Walk walk;
            Deeper(depth, WalkBoth, &walk);
            ExpectAgreement(walk);
        }
    }
}

TEST(StackWalkFrames, GoThroughARealignedStack) {
    for (int round = 0; round != 2; ++round) {
        Walk walk;
        Realigned(WalkBoth, &walk);
        ExpectAgreement(walk);
    }
}

int ThroughRealigned(void* argument) {
    const int result = RealignedOfVariableSize(100, WalkBoth, argument);
    StayHere();
    return result;
}

// The frame outside is found by the frame pointer that the inner one has saved.
TEST(StackWalkFrames, GoThroughARealignedFrameInsideOneThatNeedsItsFramePointer) {
    for (int round = 0; round != 2; ++round) {
        Walk walk;
        OfVariableSize(100, ThroughRealigned, &walk);
        ExpectAgreement(walk);
    }
}

TEST(StackWalkFrames, GoThroughOnesWhoseRegisterIsInAnother) {
    for (int round = 0; round != 2; ++round) {
        Walk walk;
        AroundOneInAnotherRegister(WalkBoth, &walk);
        ExpectAgreement(walk);
    }
}

// DW_CFA_val_offset.
TEST(StackWalkFrames, GoThroughOnesWhoseRegisterIsAPlaceInTheirFrame) {
    for (int round = 0; round != 2; ++round) {
        Walk walk;
        AroundOneAtAPlace(WalkBoth, &walk);
        ExpectAgreement(walk);
    }
}

TEST(StackWalkFrames, GoThroughOneOfVariableSize) {
    for (const std::size_t size : {16U, 4000U, 100U}) {
        Walk walk;
        OfVariableSize(size, WalkBoth, &walk);
        ExpectAgreement(walk);
    }
}

TEST(StackWalkFrames, BeginInTheWalkItself) {
    std::uint64_t found[40] = {};
    gDbgHelpBuilder.DoStackWalk(found, 1, 0);
    Dl_info place{};
    ASSERT_NE(dladdr(reinterpret_cast<void*>(found[0]), &place), 0);
    EXPECT_STREQ(place.dli_sname, "_ZN5ZBase14DbgHelpBuilder11DoStackWalkEPmmm");
    EXPECT_EQ(found[1], 0U);
}

TEST(StackWalkFrames, EndAtTheThreadsStart) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has its own of these";
    std::thread([] {
        Walk walk;
        WalkBoth(&walk);
        ExpectAgreement(walk);
        EXPECT_EQ(CountFound(walk.found), static_cast<std::size_t>(walk.expectedCount));
    }).join();
}

Walk* gSignalWalk = nullptr;

[[gnu::noinline]] int RaiseSignal(void*) {
    raise(SIGUSR1);
    StayHere();
    return 0;
}

void ExpectWalkThroughSignal(int flags) {
    Walk walk;
    gSignalWalk = &walk;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_handler = [](int) { WalkBoth(gSignalWalk); };
    action.sa_flags = flags;
    sigaction(SIGUSR1, &action, &before);
    Deeper(5, RaiseSignal, nullptr);
    sigaction(SIGUSR1, &before, nullptr);
    ExpectAgreement(walk);
    bool isThere = false;
    for (const std::uint64_t address : walk.found) {
        Dl_info place{};
        if (address != 0 && dladdr(reinterpret_cast<void*>(address), &place) != 0)
            isThere |= place.dli_sname != nullptr && std::strcmp(place.dli_sname, "_Z6DeeperiPFiPvES_") == 0;
    }
    EXPECT_TRUE(isThere || walk.expectedCount > 12);
}

TEST(StackWalkFrames, InASignalHandlerGoOnBehindAFunctionsFirstInstruction) {
    Walk walk;
    gSignalWalk = &walk;
    struct sigaction action {};
    struct sigaction before {};
    action.sa_flags = SA_SIGINFO;
    action.sa_sigaction = [](int, siginfo_t*, void* context) {
        WalkBoth(gSignalWalk);
        static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_RIP] += 2;  // continues after it
    };
    sigaction(SIGILL, &action, &before);
    Deeper(
        5,
        [](void*) {
            FaultsAtOnce();
            StayHere();
            return 0;
        },
        nullptr);
    sigaction(SIGILL, &before, nullptr);
    ExpectAgreement(walk);
    EXPECT_GT(walk.expectedCount, 9);
}

TEST(StackWalkFrames, InASignalHandlerGoOnBehindTheSignal) {
    ExpectWalkThroughSignal(0);
}

TEST(StackWalkFrames, InASignalHandlerOnItsOwnStackGoOnBehindTheSignal) {
    static char room[1 << 16];
    stack_t alternate{room, 0, sizeof room};
    stack_t before{};
    sigaltstack(&alternate, &before);
    ExpectWalkThroughSignal(SA_ONSTACK);
    sigaltstack(&before, nullptr);
}

// Many programs have signal stacks of 8 KiB, of which the kernel's signal frame takes a part.
TEST(StackWalkFrames, InASignalHandlerNeedLessThanFourKibibytesOfStack) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has its own of these";
    constexpr unsigned char kUntouched = 0xA5;
    std::vector<unsigned char> room(1 << 16, kUntouched);
    static std::uint64_t found[40];
    stack_t own{room.data(), 0, room.size()};
    stack_t before{};
    sigaltstack(&own, &before);
    struct sigaction action {};
    struct sigaction earlier {};
    action.sa_handler = [](int) { gDbgHelpBuilder.DoStackWalk(found, 40, 0); };
    action.sa_flags = SA_ONSTACK;
    sigaction(SIGUSR1, &action, &earlier);
    raise(SIGUSR1);
    sigaction(SIGUSR1, &earlier, nullptr);
    sigaltstack(&before, nullptr);
    EXPECT_GT(CountFound(found), 5U);
    const auto deepest =
        std::find_if(room.begin(), room.end(), [](unsigned char octet) { return octet != kUntouched; });
    EXPECT_LT(static_cast<std::uint64_t>(room.end() - deepest), getauxval(AT_MINSIGSTKSZ) + 4096);
}

TEST(StackWalkFrames, AreFoundWithoutAllocatingOrLocking) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has its own of these";
    const test::ChildResult child = test::RunChild({test::ChildProgram("StackWalkProbe")});
    EXPECT_EQ(child.output, "normal 0 0\nsignal 0 0\nthreads agree\n") << child.errors;
}

TEST(StackWalkFrames, AreFoundWithoutTheSystemEvenAtFirst) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has its own of these";
    const test::ChildResult child = test::RunChild({test::ChildProgram("StackWalkProbe"), "sealed"});
    EXPECT_EQ(child.output, "sealed\n") << "signal " << child.signal;
}

using CallBackFunction = int (*)(int (*)(void*), void*);

/// Walks through two modules that are loaded to one address in turn.
void ExpectModulesAreForgotten(const char* first, const char* second) {
    void* places[2] = {};
    int samePlace = 0;
    for (int round = 0; round != 6; ++round) {
        const std::string name = round % 2 == 0 ? first : second;
        void* module = dlopen((std::string(ZBASE_MODULES_DIR) + "/lib" + name + ".so").c_str(), RTLD_NOW);
        ASSERT_NE(module, nullptr);
        void* function = dlsym(module, "CallBack");
        places[round % 2] = function;
        samePlace += places[0] == places[1];
        Walk walk;
        reinterpret_cast<CallBackFunction>(function)(WalkBoth, &walk);
        ExpectAgreement(walk);
        dlclose(module);
    }
    EXPECT_TRUE(samePlace > 0 || test::kIsSanitized)
        << "the modules never lay at one place, so nothing was shown";
}

TEST(StackWalkFrames, OfAModuleThatWasUnloadedAreForgotten) {
    ExpectModulesAreForgotten("SmallFrames", "LargeFrames");
}

TEST(StackWalkFrames, OfAModuleWhoseTablesAreAlmostThoseOfTheNextAreForgotten) {
    ExpectModulesAreForgotten("LargeFrames", "LargeFramesToo");
}

TEST(StackWalkFrames, OfAModuleWithoutABuildIdAreForgotten) {
    ExpectModulesAreForgotten("FramesWithoutId", "FramesWithoutIdToo");
}

TEST(StackWalkFrames, AreFoundByManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    for (int i = 0; i != 8; ++i) {
        threads.emplace_back([i] {
            for (int round = 0; round != 300; ++round) {
                Walk walk;
                Deeper(i + round % 7, WalkBoth, &walk);
                ExpectAgreement(walk);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
}

}  // namespace
