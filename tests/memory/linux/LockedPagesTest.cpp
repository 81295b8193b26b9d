#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/syscall.h>
#include <cerrno>
#include <cstring>

#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

namespace {

constexpr std::size_t kPool = std::size_t{1} << 20;

int gGivenBack = 0;

void* Give(std::size_t) {
    void* const pages = mmap(nullptr, kPool, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return pages == MAP_FAILED ? nullptr : pages;
}

// Links what is free through its first octets, as a source of pages may.
int TakeBack(void* pages, std::size_t) {
    std::memset(pages, 1, 16);
    ++gGivenBack;
    return 0;
}

// The results of a locked buffer's end: how many chunks came back.
int EndLockedBuffer(bool isRefused) {
    ZBase::SetCallBackVirtualAlloc(Give);
    ZBase::SetCallBackVirtualFree(TakeBack);
    ZBase::Buffer* const buffer = ZBase::CreateBufferSingleThread(0, 1, nullptr, 4096, true);
    buffer->Allocate(100);
    buffer->Lock();
    if (isRefused && !test::RefuseCalls({SYS_mprotect}, ENOMEM)) return test::kNotAllowed;
    buffer->Delete();
    return gGivenBack;
}

TEST(LockedPages, GoBackToTheirSourceWritable) {
    EXPECT_GE(test::InChild([] { return EndLockedBuffer(false); }), 1);
}

TEST(LockedPages, ThatCannotBeMadeWritableAreLost) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer's own calls would be refused too";
    const int result = test::InChild([] { return EndLockedBuffer(true); });
    if (result == test::kNotAllowed) GTEST_SKIP() << "the kernel refuses no calls here";
    EXPECT_EQ(result, 0);
}

}  // namespace
