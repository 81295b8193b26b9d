#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>
#include <atomic>
#include <cfenv>
#include <cstdio>
#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Faults.h"

// Real processor faults, caught in this process.

namespace {

using namespace ZBase::Literals;
using test::CodeOf;
using test::DivideByZero;
using test::OnTranslatedThread;
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

TEST(StructuredException, TellsItsCodeInItsText) {
    OnTranslatedThread([] {
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
    OnTranslatedThread([&] {
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
    OnTranslatedThread([] {
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
    OnTranslatedThread([] {
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
    OnTranslatedThread([] {
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
    OnTranslatedThread([] {
        ZBase::SetExceptionTranslator();
        ZBase::SetExceptionTranslator();
        EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005);
    });
}

// No instruction covered by the handler follows the call.
[[gnu::noipa]] bool CatchesItsLastInstruction() {
    void (*volatile nowhere)() = nullptr;
    try {
        nowhere();
        __builtin_unreachable();
    } catch (const StructuredException&) {
        return true;
    }
}

TEST(StructuredExceptionOfACallToNowhere, IsCaughtWhereItWasMade) {
    OnTranslatedThread([] { EXPECT_TRUE(CatchesItsLastInstruction()); });
}

// The host's own handler is called for faults that are not translated. These tests run in processes in which
// no translator was set before.

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
        OnTranslatedThread([] { EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005); });
        WriteToNull();
    });
}

TEST(StructuredException, IsNoSignalThatWasSent) {
    ExpectToReachTheHandlerOfTheHost([] { OnTranslatedThread([] { raise(SIGSEGV); }); });
}

TEST(StructuredExceptionOfACallToNowhere, ThatNoCodeMadeIsNotTranslated) {
    ExpectToReachTheHandlerOfTheHost([] {
        OnTranslatedThread([] { asm volatile("pushq $16\n\tjmp *%0" : : "r"(0L) : "memory"); });
    });
}

TEST(StructuredException, RunsTheDestructorsOnItsWay) {
    OnTranslatedThread([] {
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
    OnTranslatedThread([] {
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

TEST(StructuredException, LeavesTheRoundingOfBothUnitsAsItWas) {
    OnTranslatedThread([] {
        std::fesetround(FE_UPWARD);
        for (void (*fault)() : {WriteToNull, test::FloatInexact}) EXPECT_NE(CodeOf(fault), 0u);
        EXPECT_EQ(std::fegetround(), FE_UPWARD);  // of the x87
        EXPECT_EQ(__builtin_ia32_stmxcsr() & 0x6000u, 0x4000u);
    });
}

TEST(StructuredException, MayComeOutOfTheHandlerOfAnother) {
    OnTranslatedThread([] {
        unsigned int inner = 0;
        try {
            WriteToNull();
        } catch (const StructuredExceptionImp& outer) {
            inner = CodeOf(DivideByZero);
            EXPECT_EQ(outer.GetCode(), 0xC0000005);
        }
        EXPECT_EQ(inner, 0xC0000094);
    });
}

TEST(StructuredException, LeavesTheCrashStackOfItsThreadFree) {
    OnTranslatedThread([] {
        EXPECT_TRUE(ZBase::InstallCrashStack());
        for (int i = 0; i != 1000; ++i) EXPECT_EQ(CodeOf(WriteToNull), 0xC0000005);
        stack_t stack{};
        sigaltstack(nullptr, &stack);
        EXPECT_EQ(stack.ss_flags, 0);
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
    OnTranslatedThread([&] {
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
