#include <Base/platform/os/memory/Pages.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

namespace {

using namespace ZBase;

constexpr int kForks = 200;

/// Threads that repeat an operation until the end of the test.
class Busy {
public:
    template <class Body>
    Busy(int threads, Body body) {
        for (int i = 0; i != threads; ++i) {
            mThreads.emplace_back([this, body] {
                while (!mStop) body();
            });
        }
    }
    ~Busy() {
        mStop = true;
        for (std::thread& thread : mThreads) thread.join();
    }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

private:
    std::atomic<bool> mStop{false};
    std::vector<std::thread> mThreads;
};

bool UsePages() {
    char* const pages = static_cast<char*>(os::AllocatePages(3 * os::PageSize()));
    if (pages == nullptr) return false;
    std::memset(pages, 1, 3 * os::PageSize());
    return os::ProtectPages(pages, 1) && os::UnprotectPages(pages + os::PageSize() - 1, 2) &&
           os::DecommitPages(pages + 2 * os::PageSize(), 1) && os::ReleasePages(pages);
}

TEST(Pages, NeedNoHeap) {
    const test::FailingAllocation failing(0);
    for (int i = 0; i != 2000; ++i) ASSERT_TRUE(UsePages());
    EXPECT_FALSE(failing.HasFailed());
}

TEST(Pages, AreGivenInEachChildOfABusyProcess) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    const Busy busy(3, [] { UsePages(); });
    for (int i = 0; i != kForks; ++i) ASSERT_EQ(test::InChild([] { return UsePages() ? 0 : 1; }), 0) << i;
}

// Such a child is made without fork handlers.
TEST(Pages, AreGivenInEachChildThatWasMadeWithoutHandlers) {
    if (test::kIsSanitized) GTEST_SKIP() << "the sanitizer has locks of its own across a fork";
    const Busy busy(3, [] { UsePages(); });
    for (int i = 0; i != kForks; ++i) {
        const pid_t child = _Fork();
        if (child == 0) {
            alarm(60);
            _exit(UsePages() ? 0 : 1);
        }
        int status = 0;
        waitpid(child, &status, 0);
        ASSERT_EQ(status, 0) << i;
    }
}

TEST(Pages, OfTheParentCanBeGivenBackInAChild) {
    char* const pages = static_cast<char*>(os::AllocatePages(1));
    *pages = 'p';
    EXPECT_EQ(test::InChild([pages] {
                  return *pages == 'p' && os::ReleasePages(pages) && !os::ReleasePages(pages) ? 0 : 1;
              }),
              0);
    EXPECT_TRUE(os::ReleasePages(pages));
}

}  // namespace
