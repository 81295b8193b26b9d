#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cfenv>
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
