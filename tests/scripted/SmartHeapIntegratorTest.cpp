#include <Base/memory/SmartHeapIntegrator.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>

#include "tests/scripted/ScriptedModules.h"

// An outside heap with only one of the two functions. They are looked up once in a process, so each case has
// a process of its own.

namespace {

using test::gModules;
using ZBase::SmartHeapIntegrator;

int GiveFigures(std::uint64_t* words) {
    for (std::uint64_t i = 0; i != 14; ++i) words[i] = i;
    return 1;
}

std::size_t Halve(std::size_t size) {
    return size / 2;
}

class SmartHeapIntegratorOverScriptDeathTest : public testing::Test {
protected:
    SmartHeapIntegratorOverScriptDeathTest() {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        gModules = {};
        gModules.heapName = "shsmp64";
    }

    static bool HasFigures(SmartHeapIntegrator::MemInfo& info) {
        info = {1, 2, 3, 4, 5, 6, 7, 8};
        return SmartHeapIntegrator::GetMemoryUsageInfo(info);
    }
    static void Conclude() { std::_Exit(testing::Test::HasFailure() ? 1 : 0); }
};

TEST_F(SmartHeapIntegratorOverScriptDeathTest, ThatTellsNoFiguresStillShrinks) {
    const auto body = [] {
        gModules.functions["ShrinkCache"] = reinterpret_cast<void*>(&Halve);
        SmartHeapIntegrator::MemInfo info;
        EXPECT_FALSE(HasFigures(info));
        EXPECT_EQ(info.usedBytes, 1u);
        EXPECT_EQ(info.threadCount, 8u);
        EXPECT_EQ(gModules.askedFunction, "MemProcessInfo2");
        EXPECT_EQ(SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(100), 50u);
        gModules.functions["MemProcessInfo2"] = reinterpret_cast<void*>(&GiveFigures);  // too late
        EXPECT_FALSE(HasFigures(info));
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(SmartHeapIntegratorOverScriptDeathTest, ThatDoesNotShrinkStillTellsItsFigures) {
    const auto body = [] {
        gModules.functions["MemProcessInfo2"] = reinterpret_cast<void*>(&GiveFigures);
        EXPECT_EQ(SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(100), 0u);
        EXPECT_EQ(gModules.askedFunction, "ShrinkCache");
        SmartHeapIntegrator::MemInfo info;
        EXPECT_TRUE(HasFigures(info));
        EXPECT_EQ(info.usedBytes, 7u);
        EXPECT_EQ(info.freeBytes, 1u);
        EXPECT_EQ(info.peakBytes, 9u);
        EXPECT_EQ(info.smallBlockBytes, 10u);
        EXPECT_EQ(info.largeBlockBytes, 11u);
        EXPECT_EQ(info.systemBytes, 12u);
        EXPECT_EQ(info.poolCount, 0u);
        EXPECT_EQ(info.threadCount, 13u);
        gModules.functions["ShrinkCache"] = reinterpret_cast<void*>(&Halve);  // too late
        EXPECT_EQ(SmartHeapIntegrator::ShrinkSmartHeapMemoryCache(100), 0u);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(SmartHeapIntegratorOverScriptDeathTest, IsKnownByItsNameOnly) {
    const auto body = [] {
        gModules.heapName = "smp64";
        gModules.functions["MemProcessInfo2"] = reinterpret_cast<void*>(&GiveFigures);
        SmartHeapIntegrator::MemInfo info;
        EXPECT_FALSE(HasFigures(info));
        EXPECT_EQ(gModules.askedModule, "shsmp64");
        EXPECT_EQ(gModules.askedFunction, "");
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

}  // namespace
