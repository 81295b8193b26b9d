#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>
#include <atomic>
#include <cstdio>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

// Real faults of the processor that are caught, in this process.

namespace {

using namespace ZBase::Literals;
using ZBase::StructuredException;
using ZBase::StructuredExceptionImp;
using ZBase::WideString;

static_assert(std::is_base_of_v<ZBase::Message, StructuredException>);
static_assert(!std::is_polymorphic_v<StructuredException>);
static_assert(sizeof(StructuredException) == sizeof(ZBase::Message));
static_assert(std::has_virtual_destructor_v<StructuredExceptionImp>);

char* volatile gNull = nullptr;
volatile int gZero = 0;
volatile int gSink = 0;

[[gnu::noipa]] void WriteToNull() {
    *static_cast<volatile char*>(gNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] void ReadOutsideOfTheAddressSpace() {
    gSink = *reinterpret_cast<volatile char*>(0x8000'0000'0000'0000u);
    asm volatile("");
}

[[gnu::noipa]] void WriteToCode() {
    *reinterpret_cast<volatile char*>(&WriteToNull) = 1;
    asm volatile("");
}

[[gnu::noipa]] void ReadBehindTheEndOfAFile() {
    const int file = open("/tmp", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    void* pages = mmap(nullptr, 4096, PROT_READ, MAP_SHARED, file, 0);
    close(file);
    gSink = *static_cast<volatile char*>(pages);
    asm volatile("");
}

[[gnu::noipa]] void ReadMisaligned() {
    alignas(16) static char place[32];
    // The flag that makes the processor check alignment.
    asm volatile("pushf\n\torl $0x40000, (%%rsp)\n\tpopf\n\tmovl 1(%0), %%eax"
                 :
                 : "r"(place)
                 : "eax", "cc", "memory");
}

[[gnu::noipa]] void DivideByZero() {
    gSink = 1 / gZero;
    asm volatile("");
}

[[gnu::noipa]] void RunIllegalInstruction() {
    asm volatile("ud2");
}

[[gnu::noipa]] void RunPrivilegedInstruction() {
    asm volatile("hlt");
}

[[gnu::noipa]] void HitBreakpoint() {
    asm volatile("int3");
}

[[gnu::noipa]] void SingleStep() {
    asm volatile("pushf\n\torl $0x100, (%%rsp)\n\tpopf\n\tnop" : : : "cc", "memory");
}

// Runs `operation` with one of the vector unit's exceptions unmasked.
void WithVectorException(unsigned int flag, void (*operation)()) {
    const unsigned int before = __builtin_ia32_stmxcsr();
    __builtin_ia32_ldmxcsr((before & ~0x3Fu) & ~(flag << 7));
    try {
        operation();
    } catch (...) {
        __builtin_ia32_ldmxcsr(before);
        throw;
    }
    __builtin_ia32_ldmxcsr(before);
}

volatile double gDouble = 0;
double gTiny = 1e-310;  // denormal

[[gnu::noipa]] void FloatDenormal() {
    WithVectorException(0x02, [] {
        asm volatile("movsd %0, %%xmm0\n\taddsd %%xmm0, %%xmm0" : : "m"(gTiny) : "xmm0");
    });
}
[[gnu::noipa]] void FloatDivideByZero() {
    WithVectorException(0x04, [] { gDouble = 1.0 / gDouble; });
}
[[gnu::noipa]] void FloatInexact() {
    WithVectorException(0x20, [] {
        volatile double three = 3;
        gDouble = 1.0 / three;
    });
}
[[gnu::noipa]] void FloatInvalid() {
    WithVectorException(0x01, [] { gDouble = gDouble / gDouble; });
}
[[gnu::noipa]] void FloatOverflow() {
    WithVectorException(0x08, [] {
        volatile double huge = 1e308;
        gDouble = huge * huge;
    });
}
[[gnu::noipa]] void FloatUnderflow() {
    WithVectorException(0x10, [] {
        volatile double small = 1e-300;
        gDouble = small * small;
    });
}

// The ninth value does not fit into the stack of the x87.
[[gnu::noipa]] void FloatStackOverflow() {
    const unsigned short control = 0x037E;  // invalid operations are not masked
    asm volatile(
        "fninit\n\tfldcw %0\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfld1\n\tfwait"
        :
        : "m"(control));
}

struct FaultCase {
    const char* name;
    void (*fault)();
    unsigned int code;
};

std::string Narrow(const WideString& text) {
    return ZBase::WideCharToUTF8(text.c_str(), false).c_str();
}

/// Runs on a thread of its own, since there is no way back from a translator.
template <class Body>
void OnThread(Body body) {
    std::thread([&] {
        ZBase::SetExceptionTranslator();
        body();
        asm volatile("fninit");
    }).join();
}

class Fault : public testing::TestWithParam<FaultCase> {};

TEST_P(Fault, IsCaughtWithItsCode) {
    OnThread([] {
        for (int i = 0; i != 3; ++i) {
            unsigned int code = 0;
            try {
                GetParam().fault();
                ADD_FAILURE() << "no fault";
            } catch (const StructuredExceptionImp& exception) {
                code = exception.GetCode();
            }
            EXPECT_EQ(code, GetParam().code);
        }
    });
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, Fault,
    testing::Values(FaultCase{"WriteToNull", WriteToNull, 0xC0000005},
                    FaultCase{"OutsideOfTheAddressSpace", ReadOutsideOfTheAddressSpace, 0xC0000005},
                    FaultCase{"WriteToCode", WriteToCode, 0xC0000005},
                    FaultCase{"BehindTheEndOfAFile", ReadBehindTheEndOfAFile, 0xC0000006},
                    FaultCase{"Misaligned", ReadMisaligned, 0x80000002},
                    FaultCase{"IntegerDivideByZero", DivideByZero, 0xC0000094},
                    FaultCase{"IllegalInstruction", RunIllegalInstruction, 0xC000001D},
                    FaultCase{"PrivilegedInstruction", RunPrivilegedInstruction, 0xC0000005},
                    FaultCase{"Breakpoint", HitBreakpoint, 0x80000003},
                    FaultCase{"SingleStep", SingleStep, 0x80000004},
                    FaultCase{"FloatDenormal", FloatDenormal, 0xC000008D},
                    FaultCase{"FloatDivideByZero", FloatDivideByZero, 0xC000008E},
                    FaultCase{"FloatInexact", FloatInexact, 0xC000008F},
                    FaultCase{"FloatInvalid", FloatInvalid, 0xC0000090},
                    FaultCase{"FloatOverflow", FloatOverflow, 0xC0000091},
                    FaultCase{"FloatStackOverflow", FloatStackOverflow, 0xC0000092},
                    FaultCase{"FloatUnderflow", FloatUnderflow, 0xC0000093}),
    [](const auto& row) { return std::string(row.param.name); });

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

TEST(StructuredException, EachWritesOneLine) {
    testing::internal::CaptureStdout();
    OnThread([] {
        for (int i = 0; i != 2; ++i) {
            try {
                WriteToNull();
            } catch (const StructuredException&) {
            }
        }
    });
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
