#include <Base/platform/os/memory/Pages.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>
#include <algorithm>
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

// As those of a heap in shared memory, which the system would give back with what is in them.
TEST(Pages, ThatAreSharedAreClearedToo) {
    const std::size_t size = 40 * os::PageSize();
    void* const pages = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(pages, MAP_FAILED);
    std::memset(pages, 7, size);
    auto* const octets = static_cast<unsigned char*>(pages);
    os::ClearMemory(octets + 1, size - 2);
    EXPECT_EQ(octets[0], 7);
    EXPECT_EQ(octets[size - 1], 7);
    EXPECT_TRUE(std::all_of(octets + 1, octets + size - 1, [](unsigned char octet) { return octet == 0; }));
    munmap(pages, size);
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
