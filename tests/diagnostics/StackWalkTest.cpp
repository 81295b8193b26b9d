#include <Base/diagnostics/DbgHelpBuilder.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>

#include "tests/diagnostics/Recurse.h"
#include "tests/support/Stacks.h"

using test::CountFound;
using ZBase::gDbgHelpBuilder;

namespace {

TEST(StackWalk, SkippingFortyOrMoreWritesNothing) {
    std::uint64_t found[4] = {7, 7, 7, 7};
    for (const unsigned long skip : {40UL, 41UL, ~0UL}) gDbgHelpBuilder.DoStackWalk(found, 4, skip);
    EXPECT_EQ(found[0], 7U);
}

TEST(StackWalk, IntoNothingIsNone) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    gDbgHelpBuilder.DoStackWalk(nullptr, 5, 0);
    gDbgHelpBuilder.DoStackWalkTopN(nullptr, 5, 0);
}

TEST(StackWalk, Skipping39LeavesOne) {
    Deeper(
        60,
        [](void*) {
            std::uint64_t found[4] = {};
            gDbgHelpBuilder.DoStackWalk(found, 4, 39);
            EXPECT_EQ(CountFound(found), 1U);
            return 0;
        },
        nullptr);
}

TEST(StackWalk, FortyFramesInAllIncludeTheSkipped) {
    Deeper(
        60,
        [](void*) {
            std::uint64_t found[64] = {};
            gDbgHelpBuilder.DoStackWalk(found, 32, 10);
            EXPECT_EQ(CountFound(found), 30U);
            return 0;
        },
        nullptr);
}

TEST(StackWalk, HugeCountIsFortyFrames) {
    Deeper(
        60,
        [](void*) {
            std::uint64_t found[64] = {};
            gDbgHelpBuilder.DoStackWalk(found, ~0UL, 2);
            EXPECT_EQ(CountFound(found), 38U);
            return 0;
        },
        nullptr);
}

TEST(StackWalk, WritesAtMostTheCountAndLeavesTheRestAlone) {
    std::uint64_t found[6] = {9, 9, 9, 9, 9, 9};
    gDbgHelpBuilder.DoStackWalk(found, 3, 0);
    EXPECT_NE(found[2], 9U);
    EXPECT_EQ(found[3], 9U);
    gDbgHelpBuilder.DoStackWalk(found + 3, 0, 0);
    EXPECT_EQ(found[3], 9U);
}

TEST(StackWalk, SkippingShifts) {
    std::uint64_t all[40] = {};
    std::uint64_t less[40] = {};
    for (unsigned long skip = 0; skip != 2; ++skip)
        gDbgHelpBuilder.DoStackWalk(skip == 0 ? all : less, 30, skip + 1);
    // Both come from this one call.
    for (int i = 1; less[i] != 0; ++i) EXPECT_EQ(less[i], all[i + 1]);
}

TEST(StackWalkTopN, IsTheWalkBackwards) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    Deeper(
        20,
        [](void*) {
            std::uint64_t top[128] = {};
            gDbgHelpBuilder.DoStackWalkTopN(top, 12, 0);
            std::uint64_t walk[40] = {};
            gDbgHelpBuilder.DoStackWalk(walk, 40, 0);
            // 12 steps, the first in DoStackWalkTopN itself and dropped: 11, the outermost first. The one in
            // this function is at another call.
            EXPECT_EQ(CountFound(top), 11U);
            for (std::size_t i = 0; i != 10; ++i) EXPECT_EQ(top[i], walk[11 - i]) << i;
            return 0;
        },
        nullptr);
}

TEST(StackWalkTopN, StackThatEndsBeforeTheCountWritesNothing) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    std::uint64_t found[128] = {};
    gDbgHelpBuilder.DoStackWalkTopN(found, 128, 0);
    EXPECT_EQ(found[0], 0U);
    gDbgHelpBuilder.DoStackWalkTopN(found, ~0UL, 0);
    EXPECT_EQ(found[0], 0U);
}

TEST(StackWalkTopN, CountOfNoneOrNoMoreThanSkippedWritesNothing) {
    gDbgHelpBuilder.EnumerateModulesAndLoadSymbols();
    std::uint64_t found[4] = {};
    gDbgHelpBuilder.DoStackWalkTopN(found, 0, 0);
    gDbgHelpBuilder.DoStackWalkTopN(found, 3, 2);
    gDbgHelpBuilder.DoStackWalkTopN(found, 3, ~0UL);
    EXPECT_EQ(found[0], 0U);
}

}  // namespace
