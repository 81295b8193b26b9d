#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <type_traits>

#include "tests/support/ChildProcess.h"
#include "tests/support/VirtualOrder.h"

namespace {

using ZBase::AppGlobalEventReporter;

// A callback can't be removed, so one process tests the whole life of the channel.
TEST(AppGlobalEventReporter, KeepsItsFirstCallback) {
    const test::ChildResult child = test::RunChild({test::ChildProgram("EventProbe")});
    EXPECT_EQ(child.exitCode, 0) << child.errors;
    EXPECT_EQ(child.output,
              "nobody: 1\n"
              "registered\n"  // null, which changes nothing
              "registered\n"
              "a got 1\n"
              "refused: 0 -1 Callback method is already registered\n"
              "refused: 0 -1 Callback method is already registered\n"
              "refused: 0 -1 Callback method is already registered\n"
              "refused by its type\n"
              "a got 2\n"
              "after: 3\n"
              "read back: null\n"
              "a got 9\n"
              "passed through: 10\n");
}

TEST(AppGlobalEventReporter, CallbackIsCalledByItsFirstOperation) {
    EXPECT_EQ(test::PlaceInTable(&ZBase::AppGlobalEventCallback::OnEvent), 0u);
}

TEST(AppGlobalEventReporter, ReporterIsNeitherMadeNorDestroyedOutside) {
    static_assert(!std::is_default_constructible_v<AppGlobalEventReporter>);
    static_assert(!std::is_destructible_v<AppGlobalEventReporter>);
    static_assert(std::is_copy_assignable_v<AppGlobalEventReporter>);
    static_assert(sizeof(AppGlobalEventReporter) == sizeof(void*));  // only its operations
}

TEST(AppGlobalEventReporter, ReporterCanBeCopiedInPlace) {
    alignas(AppGlobalEventReporter) unsigned char first[sizeof(AppGlobalEventReporter)]{};
    alignas(AppGlobalEventReporter) unsigned char second[sizeof(AppGlobalEventReporter)]{};
    auto& source = *reinterpret_cast<AppGlobalEventReporter*>(first);
    auto* copy = new (second) AppGlobalEventReporter(source);
    EXPECT_EQ(&(*copy = source), copy);
}

}  // namespace
