#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/WideText.h"

namespace {

using namespace ZBase::Literals;

// A number for the first wrong result; 0 if all are right.
int UseFlags() {
    if (ZBase::IsFeatureEnabled("FolioEA"_w)) return 1;
    if (!ZBase::IsFeatureEnabled("Nobody/SetThis"_w)) return 2;
    ZBase::SetFeatureEnabled("Child/Flag"_w, false);
    if (ZBase::IsFeatureEnabled("Child/Flag"_w)) return 3;
    return 0;
}

TEST(ForkedFlags, WorkInEachChildOfABusyProcess) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    ZBase::NotifyFeatureFlagMgrInitialized();
    std::atomic<bool> stop{false};
    std::vector<std::thread> threads;
    for (int i = 0; i != 3; ++i) {
        threads.emplace_back([&stop, i] {
            for (int k = 0; !stop; ++k) {
                const std::string name = "Busy/" + std::to_string(i) + "/" + std::to_string(k % 500);
                const test::Units wide(ZBase::ASCIIToWideChar(name.c_str(), false).c_str());
                ZBase::SetFeatureEnabled(wide.c_str(), false);
                ZBase::IsFeatureEnabled(wide.c_str());
            }
        });
    }
    for (int i = 0; i != 200; ++i) {
        EXPECT_EQ(test::InChild(UseFlags), 0) << i;
        if (testing::Test::HasFailure()) break;
    }
    stop = true;
    for (std::thread& thread : threads) thread.join();
}

// The table is left locked by the thread whose setting found no memory. No child has that thread.
TEST(ForkedFlags, LeftLockedByOneThreadAreFreeInAChild) {
    if (test::kHasThreadSanitizer) GTEST_SKIP() << "it holds a lock that is made anew for the one before";
    ZBase::NotifyFeatureFlagMgrInitialized();
    std::thread([] {
        for (std::size_t index = 0; index != 2; ++index) {
            const test::FailingAllocation failing(index);
            try {
                ZBase::SetFeatureEnabled("A/NameThatIsLongEnoughForTheHeap"_w, true);
            } catch (const std::bad_alloc&) {
            }
        }
    }).join();
    EXPECT_EQ(test::InChild(UseFlags), 0);
}

}  // namespace
