#include <Base/platform/os/errors/SystemErrors.h>
#include <Base/platform/os/memory/Pages.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"

namespace {

using namespace ZBase;

DWORD ProtectionOf(const void* address) {
    MEMORY_BASIC_INFORMATION facts{};
    VirtualQuery(address, &facts, sizeof facts);
    return facts.State == MEM_COMMIT ? facts.Protect : 0;
}

bool UsePages() {
    char* const pages = static_cast<char*>(os::AllocatePages(3 * os::PageSize()));
    if (pages == nullptr) return false;
    std::memset(pages, 1, 3 * os::PageSize());
    return os::ProtectPages(pages, 1) && os::UnprotectPages(pages + os::PageSize() - 1, 2) &&
           os::DecommitPages(pages + 2 * os::PageSize(), 1) && os::ReleasePages(pages);
}

TEST(Pages, NeedNoHeap) {
    UsePages();
    const test::FailingAllocation failing(0);
    for (int i = 0; i != 2000; ++i) ASSERT_TRUE(UsePages());
    EXPECT_FALSE(failing.HasFailed());
}

TEST(Pages, AreGivenToManyThreadsAtOnce) {
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i != 4; ++i) {
        threads.emplace_back([&failures] {
            for (int k = 0; k != 500; ++k) failures += UsePages() ? 0 : 1;
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
}

TEST(Pages, RangeOfOwnMemoryTakesEachPageThatItTouches) {
    const std::size_t page = os::PageSize();
    char* const pages = static_cast<char*>(os::AllocatePages(3 * page));
    ASSERT_TRUE(os::ProtectPages(pages + page - 1, 2));
    EXPECT_EQ(ProtectionOf(pages), static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(ProtectionOf(pages + page), static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(ProtectionOf(pages + 2 * page), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_FALSE(os::ProtectPages(pages + 2 * page, page + 1));
    EXPECT_EQ(os::GetLastCode(), static_cast<unsigned int>(ERROR_INVALID_ADDRESS));
    EXPECT_TRUE(os::ReleasePages(pages));
}

// As two heap blocks may share a page.
TEST(Pages, RangeOfForeignMemoryTakesOnlyThePagesInsideIt) {
    const std::size_t page = os::PageSize();
    char* const foreign =
        static_cast<char*>(VirtualAlloc(nullptr, 3 * page, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    ASSERT_TRUE(os::ProtectPages(foreign + 1, 2 * page));
    EXPECT_EQ(ProtectionOf(foreign), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_EQ(ProtectionOf(foreign + page), static_cast<DWORD>(PAGE_READONLY));
    EXPECT_EQ(ProtectionOf(foreign + 2 * page), static_cast<DWORD>(PAGE_READWRITE));
    EXPECT_TRUE(os::UnprotectPages(foreign + 1, 2 * page));
    VirtualFree(foreign, 0, MEM_RELEASE);
}

// The system itself would drop them.
TEST(Pages, OfOthersAreNotDropped) {
    const std::size_t page = os::PageSize();
    char* const foreign =
        static_cast<char*>(VirtualAlloc(nullptr, 2 * page, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE));
    EXPECT_FALSE(os::DecommitPages(foreign + 8, 1));
    EXPECT_EQ(os::GetLastCode(), static_cast<unsigned int>(ERROR_INVALID_ADDRESS));
    EXPECT_FALSE(os::ReleasePages(foreign));
    EXPECT_EQ(ProtectionOf(foreign), static_cast<DWORD>(PAGE_READWRITE));
    VirtualFree(foreign, 0, MEM_RELEASE);
}

TEST(Pages, SizesThatNobodyHasAreRefused) {
    EXPECT_EQ(os::AllocatePages(0), nullptr);
    EXPECT_EQ(os::GetLastCode(), static_cast<unsigned int>(ERROR_INVALID_PARAMETER));
    for (const std::size_t size : {~std::size_t{0}, ~std::size_t{0} - 4096, std::size_t{1} << 60}) {
        EXPECT_EQ(os::AllocatePages(size), nullptr);
        EXPECT_EQ(os::GetLastCode(), static_cast<unsigned int>(ERROR_NOT_ENOUGH_MEMORY)) << size;
    }
}

TEST(Pages, ClearedRangeIsZeroAndTheCodeStays) {
    const std::size_t size = 40 * os::PageSize();
    unsigned char* const pages = static_cast<unsigned char*>(os::AllocatePages(size));
    std::memset(pages, 7, size);
    os::SetLastCode(1234);
    os::ClearMemory(pages + 1, size - 2);
    EXPECT_EQ(os::GetLastCode(), 1234u);
    EXPECT_EQ(pages[0], 7);
    EXPECT_EQ(pages[size - 1], 7);
    for (std::size_t i = 1; i != size - 1; ++i) ASSERT_EQ(pages[i], 0) << i;
    os::ReleasePages(pages);
}

}  // namespace
