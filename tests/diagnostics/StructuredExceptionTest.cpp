#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Faults.h"

// Real faults of the processor that are caught, in this process.

namespace {

using namespace ZBase::Literals;
using test::DivideByZero;
using test::FaultKind;
using test::WriteToNull;
using ZBase::StructuredException;
using ZBase::StructuredExceptionImp;
using ZBase::WideString;

static_assert(std::is_base_of_v<ZBase::Message, StructuredException>);
static_assert(!std::is_polymorphic_v<StructuredException>);
static_assert(sizeof(StructuredException) == sizeof(ZBase::Message));
static_assert(std::has_virtual_destructor_v<StructuredExceptionImp>);

std::string Narrow(const WideString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), false).c_str();
}

template <class Fault>
unsigned int CodeOf(Fault fault) {
    try {
        fault();
    } catch (const StructuredExceptionImp& exception) {
        return exception.GetCode();
    }
    return 0;
}

/// Runs on a thread of its own, since there is no way back from a translator.
template <class Body>
void OnThread(Body body) {
    std::thread([&] {
        ZBase::SetExceptionTranslator();
        body();
        asm volatile("fninit");  // a fault leaves values behind
    }).join();
}

class Fault : public testing::TestWithParam<FaultKind> {};

TEST_P(Fault, IsCaughtWithItsCode) {
    OnThread([] {
        for (int i = 0; i != 3; ++i) EXPECT_EQ(CodeOf(GetParam().fault), GetParam().code);
    });
}

TEST_P(Fault, OfAThreadWithoutATranslatorEndsTheProcessByItsSignal) {
    const auto faultAfterOthersTranslators = [] {
        const rlimit noCore{};
        setrlimit(RLIMIT_CORE, &noCore);
        OnThread([] { CodeOf(GetParam().fault); });
        GetParam().fault();
    };
    EXPECT_EXIT(faultAfterOthersTranslators(), testing::KilledBySignal(GetParam().signal), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, Fault, testing::ValuesIn(test::kFaults),
                         [](const auto& row) { return std::string(row.param.name); });

// A division is told by its instruction: each form of a divisor is an instruction of its own.

template <class Divide>
void ExpectCodesOfDivision(Divide divide) {
    OnThread([&] {
        EXPECT_EQ(CodeOf([&] { divide(0); }), 0xC0000094);
        EXPECT_EQ(CodeOf([&] { divide(-1); }), 0xC0000095);
    });
}

thread_local int tDivisor;

TEST(DivisionFault, TellsAZeroFromAnOverflowInEachRegister) {
    ExpectCodesOfDivision([](int divisor) {
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %0" : : "c"(divisor) : "eax", "edx", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {
        register int value asm("r12") = divisor;
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %0" : : "r"(value) : "eax", "edx", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {
        register long value asm("r15") = divisor;
        asm volatile("movl $1, %%eax\n\tshlq $63, %%rax\n\tcqto\n\tidivq %0"
                     :
                     : "r"(value)
                     : "rax", "rdx", "cc");
    });
}

TEST(DivisionFault, TellsAZeroFromAnOverflowInNarrowRegisters) {
    ExpectCodesOfDivision([](int divisor) {  // %bh, with all of the register but it set
        const int value = (divisor & 0xFF) << 8 | 0x7F0000FF;
        asm volatile("movw $0x8000, %%ax\n\tidivb %%bh" : : "b"(value) : "eax", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {  // %dil, which has the number of %bh
        const int value = (divisor & 0xFF) | 0x7F00FF00;
        asm volatile("movw $0x8000, %%ax\n\tidivb %%dil" : : "D"(value) : "eax", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {
        const int value = (divisor & 0xFFFF) | 0x7F000000;
        asm volatile("movw $0x8000, %%ax\n\tcwtd\n\tidivw %%cx" : : "c"(value) : "eax", "edx", "cc");
    });
}

TEST(DivisionFault, TellsAZeroFromAnOverflowInMemory) {
    ExpectCodesOfDivision([](int divisor) {
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl (%0)"
                     :
                     : "c"(&divisor)
                     : "eax", "edx", "cc", "memory");
    });
    ExpectCodesOfDivision([](int divisor) {  // a base, a scaled index and a displacement of one octet
        int row[] = {7, 7, 7, divisor, 7};
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl -4(%0, %1, 4)"
                     :
                     : "r"(row), "r"(4L)
                     : "eax", "edx", "cc", "memory");
    });
    ExpectCodesOfDivision([](int divisor) {  // extended registers, and a displacement of four octets
        int row[] = {7, 7, 7, divisor, 7};
        register unsigned long base asm("r13") = reinterpret_cast<unsigned long>(row) - 0x12345;
        register long index asm("r12") = 6;
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl 0x12345(%0, %1, 2)"
                     :
                     : "r"(base), "r"(index)
                     : "eax", "edx", "cc", "memory");
    });
    ExpectCodesOfDivision([](int divisor) {  // no base
        int row[] = {7, divisor, 7};
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl 4(, %0, 1)"
                     :
                     : "r"(row)
                     : "eax", "edx", "cc", "memory");
    });
    ExpectCodesOfDivision([](int divisor) {  // relative to the instruction
        static volatile int sDivisor;
        sDivisor = divisor;
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %0" : : "m"(sDivisor) : "eax", "edx", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {  // relative to the thread
        tDivisor = divisor;
        long offset = reinterpret_cast<char*>(&tDivisor) - static_cast<char*>(__builtin_thread_pointer());
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %%fs:(%0)"
                     :
                     : "r"(offset)
                     : "eax", "edx", "cc", "memory");
    });
}

TEST(PrivilegedFault, IsToldByItsInstruction) {
    OnThread([] {
        EXPECT_EQ(CodeOf([] { asm volatile("cli"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("inb $0x80, %%al" : : : "eax"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("outb %%al, %%dx" : : "d"(0x80)); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("rdmsr" : : "c"(0) : "eax", "edx"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("movq %%cr0, %%rax" : : : "rax"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("movq %%db0, %%r8" : : : "r8"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("wbinvd"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("swapgs"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("lldt %%ax" : : "a"(0)); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("lidt (%%rsp)" : : : "memory"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("invlpg (%%rsp)" : : : "memory"); }), 0xC0000096);
        EXPECT_EQ(CodeOf([] { asm volatile("lock; incl (%0)" : : "r"(1ul << 63) : "memory"); }), 0xC0000005);
    });
}

TEST(StructuredException, TellsItsCodeInItsText) {
    OnThread([] {
        try {
            WriteToNull();
        } catch (const StructuredExceptionImp& exception) {
            EXPECT_EQ(Narrow(exception.GetText()), "Structured exception thrown (0xc0000005). Stack: ");
        }
    });
}

TEST(StructuredException, CodeHasNoPadding) {
    EXPECT_EQ(Narrow(StructuredExceptionImp(0xAB, nullptr).GetText()),
              "Structured exception thrown (0xab). Stack: ");
    EXPECT_EQ(Narrow(StructuredExceptionImp(0, nullptr).GetText()),
              "Structured exception thrown (0x0). Stack: ");
}

TEST(StructuredException, EachWritesOneLineAndEqualCodesHaveEqualTexts) {
    testing::internal::CaptureStdout();
    std::vector<std::string> texts;
    OnThread([&] {
        for (int i = 0; i != 2; ++i) {
            try {
                WriteToNull();
            } catch (const StructuredExceptionImp& exception) {
                texts.push_back(Narrow(exception.GetText()));
            }
        }
    });
    ASSERT_EQ(texts.size(), 2u);
    EXPECT_EQ(texts[0], texts[1]);
    const std::string line =
        "Error in StructuredExceptionImp::FillOutStackAddresses, CPU type unsupportted!\n";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), line + line);
}

TEST(StructuredException, IsAnEmptyMessage) {
    OnThread([] {
        const ZBase::Message empty;
        try {
            WriteToNull();
        } catch (const ZBase::Message message) {
            EXPECT_EQ(message.GetDomain(), empty.GetDomain());
            EXPECT_EQ(message.GetID(), empty.GetID());
            EXPECT_TRUE(WideString(message.GetMessage()) == empty.GetMessage());
        }
    });
}

TEST(StructuredException, IsCaughtAsEachOfItsThreeTypes) {
    OnThread([] {
        const auto caughtAs = [](auto type) {
            try {
                WriteToNull();
            } catch (const decltype(type)&) {
                return true;
            }
            return false;
        };
        EXPECT_TRUE(caughtAs(StructuredExceptionImp(0, nullptr)));
        EXPECT_TRUE(caughtAs(StructuredException()));
        EXPECT_TRUE(caughtAs(ZBase::Message()));
    });
}

TEST(StructuredException, ArrivesAsBadAllocWhenThereIsNoMemoryForIt) {
    OnThread([] {
        int failed = 0;
        const std::size_t failures = test::ForEachFailingAllocation([&] {
            try {
                WriteToNull();
            } catch (const std::bad_alloc&) {
                ++failed;
            } catch (const StructuredException&) {
            }
        });
        EXPECT_GE(failures, 1u);
        EXPECT_EQ(static_cast<std::size_t>(failed), failures);
    });
}

TEST(StructuredException, IsOneHoweverOftenTheTranslatorWasSet) {
    OnThread([] {
        ZBase::SetExceptionTranslator();
        ZBase::SetExceptionTranslator();
        EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005);
    });
}

// Nothing that the handler covers stands behind the call.
[[gnu::noipa]] bool CatchesItsLastInstruction() {
    void (*volatile nowhere)() = nullptr;
    try {
        nowhere();
        __builtin_unreachable();
    } catch (const StructuredException&) {
        return true;
    }
}

TEST(CallToNowhere, IsCaughtWhereItWasMade) {
    OnThread([] { EXPECT_TRUE(CatchesItsLastInstruction()); });
}

// The host's own handler is asked for what is not translated. These tests run in processes in which no
// translator was set before.

void ExitByHandler(int) {
    _exit(42);
}

template <class Body>
void ExpectToReachTheHandlerOfTheHost(Body body) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto run = [&] {
        signal(SIGSEGV, ExitByHandler);
        body();
    };
    EXPECT_EXIT(run(), testing::ExitedWithCode(42), "");
}

TEST(StructuredException, OfAnotherThreadGoesToTheHandlerThatWasThereBefore) {
    ExpectToReachTheHandlerOfTheHost([] {
        OnThread([] { EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005); });
        WriteToNull();
    });
}

TEST(CallToNowhere, ThatNoCodeMadeIsNotTranslated) {
    ExpectToReachTheHandlerOfTheHost([] {
        OnThread([] { asm volatile("pushq $16\n\tjmp *%0" : : "r"(0L) : "memory"); });
    });
}

TEST(StructuredException, RunsTheDestructorsOnItsWay) {
    OnThread([] {
        int destroyed = 0;
        struct Counter {
            int& count;
            ~Counter() { ++count; }
        };
        try {
            const Counter outer{destroyed};
            const Counter inner{destroyed};
            WriteToNull();
        } catch (const StructuredException&) {
        }
        EXPECT_EQ(destroyed, 2);
    });
}

TEST(StructuredException, LeavesTheSignalMaskAsItWas) {
    OnThread([] {
        sigset_t before;
        sigset_t after;
        pthread_sigmask(SIG_SETMASK, nullptr, &before);
        try {
            WriteToNull();
        } catch (const StructuredException&) {
        }
        pthread_sigmask(SIG_SETMASK, nullptr, &after);
        for (int signal = 1; signal < NSIG; ++signal) {
            EXPECT_EQ(sigismember(&before, signal), sigismember(&after, signal)) << signal;
        }
    });
}

TEST(StructuredException, HundredThousandFaultsLeakNothing) {
    std::fflush(stdout);
    const int output = dup(STDOUT_FILENO);
    const int sink = open("/dev/null", O_WRONLY | O_CLOEXEC);
    dup2(sink, STDOUT_FILENO);
    const auto resident = [] {
        std::FILE* file = std::fopen("/proc/self/statm", "r");
        long total = 0;
        long pages = 0;
        EXPECT_EQ(std::fscanf(file, "%ld %ld", &total, &pages), 2);
        std::fclose(file);
        return pages;
    };
    long before = 0;
    long after = 0;
    int caught = 0;
    OnThread([&] {
        for (int i = 0; i != 100000; ++i) {
            if (i == 1000) before = resident();
            try {
                i % 2 == 0 ? WriteToNull() : DivideByZero();
            } catch (const StructuredException&) {
                ++caught;
            }
        }
        after = resident();
    });
    std::fflush(stdout);
    dup2(output, STDOUT_FILENO);
    close(output);
    close(sink);
    EXPECT_EQ(caught, 100000);
    EXPECT_LT(after, before + 32);  // pages
}

TEST(StructuredException, ManyThreadsFaultAtOnce) {
    testing::internal::CaptureStdout();
    std::vector<std::thread> threads;
    std::atomic<int> caught = 0;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back([&] {
            ZBase::SetExceptionTranslator();
            for (int k = 0; k != 1000; ++k) {
                try {
                    WriteToNull();
                } catch (const StructuredException&) {
                    ++caught;
                }
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(caught, 4000);
}

TEST(StructuredException, OfACopyIsEqual) {
    const StructuredExceptionImp exception(0xC0000094, nullptr);
    const StructuredExceptionImp copy(exception);
    EXPECT_EQ(copy.GetCode(), 0xC0000094);
    EXPECT_TRUE(copy.GetText() == exception.GetText());
}

}  // namespace
