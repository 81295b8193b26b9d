#include <Base/diagnostics/AddrToLine.h>
#include <Base/diagnostics/DbgHelpBuilder.h>
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/Stacks.h"

// Frames that module tables do not describe, and modules that were replaced.

extern "C" void __register_frame(void* tables);
extern "C" void __deregister_frame(void* tables);

// Has a frame pointer and no unwind tables.
asm(R"(
    .text
    .globl CallWithoutTables
    .type CallWithoutTables, @function
CallWithoutTables:
    push %rbp
    mov %rsp, %rbp
    mov %rdi, %rax
    mov %rsi, %rdi
    call *%rax
    pop %rbp
    ret
    .size CallWithoutTables, . - CallWithoutTables
)");
using CallBack = int (*)(int (*)(void*), void*);
extern "C" int CallWithoutTables(int (*function)(void*), void* argument);

struct Road {
    std::vector<std::string> walked;    // by DoStackWalk, looked up
    std::vector<std::string> captured;  // by CreateCallStack
    std::vector<std::string> lines;     // of the walked frames
};

[[gnu::noinline]] int TakeRoad(void* argument) {
    auto& road = *static_cast<Road*>(argument);
    const test::Stack stack(ZBase::CreateCallStack(nullptr));
    std::uint64_t found[40] = {};
    ZBase::gDbgHelpBuilder.DoStackWalk(found, 40, 1);
    road.captured = test::Symbols(*stack);
    for (const std::uint64_t address : found) {
        std::string module, symbol, file, line;
        if (address == 0) break;
        ZBase::AddrToLine().Fetch(address, module, symbol, file, line);
        road.walked.push_back(symbol);
        road.lines.push_back(line);
    }
    test::StayHere();
    return 0;
}

[[gnu::noinline]] int OutsideOf(CallBack code, void* argument) {
    const int result = code(TakeRoad, argument);
    test::StayHere();
    return result + 1;
}

struct Waiting {
    std::atomic<bool> isThere{false};
    std::atomic<bool> mayGo{false};
};

// Further in than the five frames that are left out.
[[gnu::noinline]] void WaitInside(int depth, Waiting& waiting) {
    if (depth != 0) WaitInside(depth - 1, waiting);
    waiting.isThere = true;
    while (!waiting.mayGo) {
    }
    test::StayHere();
}

[[gnu::noinline]] int StartWaiting(void* waiting) {
    WaitInside(7, *static_cast<Waiting*>(waiting));
    test::StayHere();
    return 0;
}

[[gnu::noinline]] int WaitOutside(CallBack code, Waiting& waiting) {
    const int result = code(StartWaiting, &waiting);
    test::StayHere();
    return result + 1;
}

std::jmp_buf gWayBack;

[[noreturn, gnu::noinline]] void NeverReturns(Road* road) {
    TakeRoad(road);
    std::longjmp(gWayBack, 1);
}

constexpr int kLineOfLastCall = __LINE__ + 3;
[[gnu::noinline]] void EndsWithACall(Road* road) {
    test::StayHere();
    NeverReturns(road);
}

// Ends with a call right before the next function.
asm(R"(
    .text
    .globl EndsAtOnce
    .type EndsAtOnce, @function
EndsAtOnce:
    .cfi_startproc
    sub $8, %rsp
    .cfi_def_cfa_offset 16
    call NeverReturnsToAsm
    .cfi_endproc
    .size EndsAtOnce, . - EndsAtOnce
    .globl BeginsBehind
    .type BeginsBehind, @function
BeginsBehind:
    .cfi_startproc
    ret
    .cfi_endproc
    .size BeginsBehind, . - BeginsBehind
)");
extern "C" void EndsAtOnce(Road* road);
extern "C" void BeginsBehind();
extern "C" [[noreturn, gnu::used]] void NeverReturnsToAsm(Road* road) {
    TakeRoad(road);
    std::longjmp(gWayBack, 1);
}

namespace {

constexpr char kOutside[] = "OutsideOf(int (*)(int (*)(void*), void*), void*)";

bool Has(const std::vector<std::string>& symbols, const std::string& name) {
    return std::find(symbols.begin(), symbols.end(), name) != symbols.end();
}

void ExpectGoesOn(const Road& road) {
    EXPECT_TRUE(Has(road.walked, kOutside)) << road.walked.size();
    EXPECT_TRUE(Has(road.walked, "main"));
    EXPECT_TRUE(Has(road.captured, kOutside)) << road.captured.size();
    EXPECT_TRUE(Has(road.captured, "main"));
}

/// Code that was made at run time.
class MadeCode {
public:
    explicit MadeCode(const std::vector<unsigned char>& octets)
        : mpPlace(
              mmap(nullptr, kSize, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0)) {
        std::memcpy(mpPlace, octets.data(), octets.size());
    }
    ~MadeCode() { munmap(mpPlace, kSize); }
    MadeCode(const MadeCode&) = delete;
    MadeCode& operator=(const MadeCode&) = delete;

    CallBack Function() const { return reinterpret_cast<CallBack>(mpPlace); }
    std::uint64_t Place() const { return reinterpret_cast<std::uint64_t>(mpPlace); }

    static constexpr std::size_t kSize = 4096;

private:
    void* mpPlace;
};

const std::vector<unsigned char> kKeepsFramePointer = {
    0x55, 0x48, 0x89, 0xE5,                          // push %rbp; mov %rsp, %rbp
    0x48, 0x89, 0xF8, 0x48, 0x89, 0xF7, 0xFF, 0xD0,  // mov %rdi, %rax; mov %rsi, %rdi; call *%rax
    0x5D, 0xC3};                                     // pop %rbp; ret

// The frame pointer is clobbered, so only tables can describe the frame.
const std::vector<unsigned char> kLosesFramePointer = {
    0x55, 0x31, 0xED,                                // push %rbp; xor %ebp, %ebp
    0x48, 0x89, 0xF8, 0x48, 0x89, 0xF7, 0xFF, 0xD0,  // mov %rdi, %rax; mov %rsi, %rdi; call *%rax
    0x5D, 0xC3};                                     // pop %rbp; ret

/// The tables of `kLosesFramePointer`, registered while the object lives.
class Tables {
public:
    explicit Tables(std::uint64_t function) {
        // CIE: version 1, no augmentation, factors 1 and -8, return address 16; CFA = %rsp + 8, address at -8
        const unsigned char common[] = {20, 0,    0, 0, 0,    0, 0, 0, 1, 0, 1, 0x78,
                                        16, 0x0C, 7, 8, 0x90, 1, 0, 0, 0, 0, 0, 0};
        // FDE: behind one octet the CFA is %rsp + 16, and %rbp is stored at -16
        const unsigned char program[] = {0x41, 0x0E, 16, 0x86, 2, 0, 0, 0};
        const std::uint32_t head[2] = {28, 28};
        const std::uint64_t range[2] = {function, kLosesFramePointer.size()};
        Put(common);
        Put(head);
        Put(range);
        Put(program);
        mOctets.resize(mOctets.size() + 8);
        __register_frame(mOctets.data());
    }
    ~Tables() { __deregister_frame(mOctets.data()); }
    Tables(const Tables&) = delete;
    Tables& operator=(const Tables&) = delete;

private:
    template <class T>
    void Put(const T& part) {
        const auto* const start = reinterpret_cast<const unsigned char*>(&part);
        mOctets.insert(mOctets.end(), start, start + sizeof part);
    }

    std::vector<unsigned char> mOctets;
};

TEST(FrameRoads, GoThroughCodeWithoutTablesByItsFramePointer) {
    for (int round = 0; round != 2; ++round) {
        Road road;
        OutsideOf(CallWithoutTables, &road);
        ExpectGoesOn(road);
    }
}

TEST(FrameRoads, GoThroughMadeCodeByItsFramePointer) {
    const MadeCode code(kKeepsFramePointer);
    Road road;
    OutsideOf(code.Function(), &road);
    ExpectGoesOn(road);
}

TEST(FrameRoads, GoThroughMadeCodeByTheTablesThatWereRegistered) {
    const MadeCode code(kLosesFramePointer);
    const Tables tables(code.Place());
    Road road;
    OutsideOf(code.Function(), &road);
    ExpectGoesOn(road);
}

TEST(FrameRoads, OfAnotherThreadGoThroughMadeCode) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "signals are held back";
    const MadeCode code(kLosesFramePointer);
    const Tables tables(code.Place());
    Waiting waiting;
    std::thread thread([&] { WaitOutside(code.Function(), waiting); });
    while (!waiting.isThere) std::this_thread::yield();
    const test::Stack stack(ZBase::CreateCallStack(reinterpret_cast<void*>(thread.native_handle())));
    waiting.mayGo = true;
    thread.join();
    EXPECT_TRUE(Has(test::Symbols(*stack), "WaitOutside(int (*)(int (*)(void*), void*), Waiting&)"))
        << stack->GetLineCount();
}

TEST(FrameRoads, CallerOfAFunctionThatNeverReturnsIsNamedByTheCall) {
    Road road;
    if (setjmp(gWayBack) == 0) EndsWithACall(&road);
    EXPECT_TRUE(Has(road.captured, "EndsWithACall(Road*)"));
    const auto found = std::find(road.walked.begin(), road.walked.end(), "EndsWithACall(Road*)");
    ASSERT_NE(found, road.walked.end());
    EXPECT_EQ(road.lines[static_cast<std::size_t>(found - road.walked.begin())],
              std::to_string(kLineOfLastCall));
}

TEST(FrameRoads, CallerThatEndsWhereAnotherFunctionBeginsIsNamedByTheCall) {
    Road road;
    if (setjmp(gWayBack) == 0) EndsAtOnce(&road);
    EXPECT_TRUE(Has(road.captured, "EndsAtOnce"));
    EXPECT_FALSE(Has(road.captured, "BeginsBehind"));
    EXPECT_TRUE(Has(road.walked, "EndsAtOnce"));
    EXPECT_FALSE(Has(road.walked, "BeginsBehind"));
}

std::string RunDamaged(const char* value) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("DamagedStackProbe"), value});
    EXPECT_EQ(child.signal, 0) << value;
    return child.output;
}

TEST(FrameRoads, EndAtADamagedFramePointer) {
    for (const char* value : {"0", "1", "8", "4096", "0x4141414141414141", "-1", "-8", "-16", "hole",
                              "closed", "heap", "below", "above", "itself"})
        EXPECT_EQ(RunDamaged(value), "walked\n") << value;
}

class FrameRoadsThroughModules : public test::ScratchFolder {
protected:
    static void ExpectNamed(const std::string& output) {
        EXPECT_NE(output.find("Sym:[Inner()]"), std::string::npos) << output;
        EXPECT_NE(output.find("Sym:[main]"), std::string::npos) << output;
        EXPECT_NE(output.find("NamedStackProbe.cpp]("), std::string::npos) << output;
        EXPECT_NE(output.find("fetched Inner() "), std::string::npos) << output;
    }
};

TEST_F(FrameRoadsThroughModules, WithHolesBetweenTheirSegmentsAreNamed) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("NamedStackProbeWithHoles")});
    ExpectNamed(child.output);
}

TEST_F(FrameRoadsThroughModules, DeletedOrReplacedWhileTheyRunKeepTheirSymbols) {
    const auto program = mFolder / "NamedStackProbe";
    for (const char* what : {"deleted", "replaced"}) {
        std::filesystem::copy_file(test::ChildProgram("NamedStackProbe"), program,
                                   std::filesystem::copy_options::overwrite_existing);
        const test::ChildResult child = test::RunChild({program, what});
        ExpectNamed(child.output);
        EXPECT_EQ(child.output.find("(deleted)"), std::string::npos) << child.output;
    }
}

}  // namespace
