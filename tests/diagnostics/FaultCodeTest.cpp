#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/resource.h>

#include <cerrno>

#include "tests/support/RefusedCalls.h"
#include "tests/support/linux/FaultKinds.h"

// The code of each kind of fault, caught in this process.

namespace {

using test::CodeOf;
using test::FaultKind;
using test::OnTranslatedThread;

class FaultCode : public testing::TestWithParam<FaultKind> {};

TEST_P(FaultCode, IsCaughtWithItsCode) {
    OnTranslatedThread([] {
        for (int i = 0; i != 3; ++i) EXPECT_EQ(CodeOf(GetParam().fault), GetParam().code);
    });
}

TEST_P(FaultCode, OfAThreadWithoutATranslatorEndsTheProcessByItsSignal) {
    const auto faultAfterOthersTranslators = [] {
        const rlimit noCore{};
        setrlimit(RLIMIT_CORE, &noCore);
        OnTranslatedThread([] { CodeOf(GetParam().fault); });
        GetParam().fault();
    };
    EXPECT_EXIT(faultAfterOthersTranslators(), testing::KilledBySignal(GetParam().signal), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, FaultCode, testing::ValuesIn(test::kFaults),
                         [](const auto& row) { return std::string(row.param.name); });

// A division is recognised by its instruction: each form of a divisor is a different one.

template <class Divide>
void ExpectCodesOfDivision(Divide divide) {
    OnTranslatedThread([&] {
        EXPECT_EQ(CodeOf([&] { divide(0); }), 0xC0000094);
        EXPECT_EQ(CodeOf([&] { divide(-1); }), 0xC0000095);
    });
}

// As in a sandbox that keeps processes from reading others.
TEST(FaultCodeOfADivision, TellsAZeroFromAnOverflowWhereTheSystemRefusesToReadTheInstruction) {
    const int result = test::InChild([] {
        if (!test::RefuseCalls({SYS_process_vm_readv}, EPERM)) return test::kNotAllowed;
        unsigned int zero = 0;
        unsigned int overflow = 0;
        const auto divide = [](int divisor) {
            asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %0" : : "c"(divisor) : "eax", "edx", "cc");
        };
        OnTranslatedThread([&] {
            zero = CodeOf([&] { divide(0); });
            overflow = CodeOf([&] { divide(-1); });
        });
        return (zero == 0xC0000094 ? 0 : 1) + (overflow == 0xC0000095 ? 0 : 2);
    });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
    EXPECT_EQ(result, 0);
}

thread_local int tDivisor;

TEST(FaultCodeOfADivision, TellsAZeroFromAnOverflowInEachRegister) {
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

TEST(FaultCodeOfADivision, TellsAZeroFromAnOverflowInNarrowRegisters) {
    ExpectCodesOfDivision([](int divisor) {  // %bh, with all other bits of the register set
        const int value = (divisor & 0xFF) << 8 | 0x7F0000FF;
        asm volatile("movw $0x8000, %%ax\n\tidivb %%bh" : : "b"(value) : "eax", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {  // %dil, which has the register number of %bh
        const int value = (divisor & 0xFF) | 0x7F00FF00;
        asm volatile("movw $0x8000, %%ax\n\tidivb %%dil" : : "D"(value) : "eax", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {
        const int value = (divisor & 0xFFFF) | 0x7F000000;
        asm volatile("movw $0x8000, %%ax\n\tcwtd\n\tidivw %%cx" : : "c"(value) : "eax", "edx", "cc");
    });
}

TEST(FaultCodeOfADivision, TellsAZeroFromAnOverflowInMemory) {
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
    ExpectCodesOfDivision([](int divisor) {  // no base register
        int row[] = {7, divisor, 7};
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl 4(, %0, 1)"
                     :
                     : "r"(row)
                     : "eax", "edx", "cc", "memory");
    });
    ExpectCodesOfDivision(
        [](int divisor) {  // an address of four octets, in a register whose others say nothing
            static void* const sPage =
                mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
            *static_cast<int*>(sPage) = divisor;
            const unsigned long address = reinterpret_cast<unsigned long>(sPage) | 0x12345678UL << 32;
            asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl (%%ecx)"
                         :
                         : "c"(address)
                         : "eax", "edx", "cc", "memory");
        });
    ExpectCodesOfDivision([](int divisor) {  // rip-relative
        static volatile int sDivisor;
        sDivisor = divisor;
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %0" : : "m"(sDivisor) : "eax", "edx", "cc");
    });
    ExpectCodesOfDivision([](int divisor) {  // thread-local (fs)
        tDivisor = divisor;
        long offset = reinterpret_cast<char*>(&tDivisor) - static_cast<char*>(__builtin_thread_pointer());
        asm volatile("movl $0x80000000, %%eax\n\tcltd\n\tidivl %%fs:(%0)"
                     :
                     : "r"(offset)
                     : "eax", "edx", "cc", "memory");
    });
}

TEST(FaultCodeOfAPrivilegedInstruction, IsToldByItsInstruction) {
    OnTranslatedThread([] {
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

}  // namespace
