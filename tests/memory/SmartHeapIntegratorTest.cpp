#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>

#include "tests/support/ChildProcess.h"

// The outside heap is looked for once in a process, so each case has a process of its own.

namespace {

using ZBase::SmartHeapIntegrator;

std::string AnswersWithHeap(const char* when) {
    const test::ChildResult child =
        test::RunChild({test::ChildProgram("SmartHeapProbe"), ZBASE_COMPONENTS_DIR "/libshsmp64.so", when});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    return child.output;
}

// Untouched fields keep 1 to 8.
constexpr char kNo[] = "0 1 2 3 4 5 6 7 8\n";

TEST(SmartHeapIntegrator, FiguresArriveInTheirFields) {
    // Word i is 0x1000000010000 * (i + 1) + i, but words 7 and 8, used and total, which are given.
    const std::string rest = "a0000000a0009 b0000000b000a c0000000c000b d0000000d000c 1000000010000 e000d\n";
    EXPECT_EQ(
        AnswersWithHeap("early"),
        "enabled 1\n"
        "1 100 80 " +
            rest + "1 100 0 " + rest + "1 100 0 " + rest +  // total below used
            "1 100 80 " + rest +                            // any result but 0 is success
            kNo +
            "shrunk 50\n"
            "1 100 "  // the on-boundary memory is added; used wrapped below 0, so the total is not larger
            "0 " +
            rest + "shrunk 50\n");
}

TEST(SmartHeapIntegrator, ThatIsNotThereAnswersNo) {
    const std::string no = kNo;
    EXPECT_EQ(AnswersWithHeap("never"),
              "enabled 1\n" + no + no + no + no + no + "shrunk 0\n" + no + "shrunk 0\n");
}

TEST(SmartHeapIntegrator, ThatComesAfterTheFirstQuestionIsNotNoticed) {
    EXPECT_EQ(AnswersWithHeap("late"), AnswersWithHeap("never"));
}

TEST(SmartHeapIntegrator, SwitchesAreAsAtLoad) {
    EXPECT_TRUE(SmartHeapIntegrator::IsSmartHeapEnabled());
    EXPECT_TRUE(SmartHeapIntegrator::mSmartHeapEnabled);
    EXPECT_EQ(SmartHeapIntegrator::mpMemHookProcess, nullptr);
    EXPECT_EQ(SmartHeapIntegrator::mpMemPatchProcess, nullptr);
}

TEST(SmartHeapIntegrator, EnabledIsWhatTheApplicationWrites) {
    SmartHeapIntegrator::mSmartHeapEnabled = false;
    EXPECT_FALSE(SmartHeapIntegrator::IsSmartHeapEnabled());
    SmartHeapIntegrator::mSmartHeapEnabled = true;
}

TEST(SmartHeapIntegrator, HookingIsSetForGood) {
    EXPECT_EQ(SmartHeapIntegrator::GetHookingEnabled(), SmartHeapIntegrator::mHookEnabled);
    SmartHeapIntegrator::SetHookingEnabled();
    EXPECT_TRUE(SmartHeapIntegrator::GetHookingEnabled());
    EXPECT_TRUE(SmartHeapIntegrator::mHookEnabled);
    SmartHeapIntegrator::Init();
    SmartHeapIntegrator::MemPatchProcess();
    EXPECT_TRUE(SmartHeapIntegrator::GetHookingEnabled());
}

TEST(SmartHeapIntegrator, ObjectsOfItHoldNothingAndAreAssigned) {
    static_assert(std::is_empty_v<SmartHeapIntegrator>);
    SmartHeapIntegrator first;
    SmartHeapIntegrator second;
    EXPECT_EQ(&(second = first), &second);
    EXPECT_EQ(&(second = SmartHeapIntegrator()), &second);
}

TEST(SmartHeapIntegrator, RecordHasSevenWideFieldsAndANarrowOne) {
    static_assert(std::is_trivial_v<SmartHeapIntegrator::MemInfo>);
    static_assert(sizeof(SmartHeapIntegrator::MemInfo) == 64);
    static_assert(offsetof(SmartHeapIntegrator::MemInfo, threadCount) == 56);
    static_assert(std::is_same_v<decltype(SmartHeapIntegrator::MemInfo::threadCount), std::uint32_t>);
}

}  // namespace
