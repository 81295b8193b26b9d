#include <Base/platform/os/linux/memory/OwnMemory.h>

#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cerrno>
#include <cstring>

#include "tests/support/RefusedCalls.h"
#include "tests/support/Sanitizers.h"

namespace {

namespace os = ZBase::os;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kReadable = 20;  // pages; the next is mapped without access

std::uint64_t Address(const void* place) {
    return reinterpret_cast<std::uint64_t>(place);
}

// 0 if each copy ends where the readable memory does.
int Copies() {
    auto* const start = static_cast<unsigned char*>(
        mmap(nullptr, (kReadable + 1) * kPage, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    if (mprotect(start, kReadable * kPage, PROT_READ | PROT_WRITE) != 0) return 1;
    for (std::size_t i = 0; i != kReadable * kPage; ++i) start[i] = static_cast<unsigned char>(i % 251);
    static unsigned char copy[(kReadable + 1) * kPage];
    errno = 77;
    if (os::CopyOwnMemory(Address(start) + 3, copy, 2 * kPage) != 2 * kPage) return 2;
    if (std::memcmp(copy, start + 3, 2 * kPage) != 0) return 3;
    if (os::CopyOwnMemory(Address(start), copy, sizeof copy) != kReadable * kPage) return 4;
    if (std::memcmp(copy, start, kReadable * kPage) != 0) return 5;
    unsigned char* const end = start + kReadable * kPage;
    if (os::CopyOwnMemory(Address(end) - 1, copy, 8) != 1) return 6;
    if (copy[0] != (kReadable * kPage - 1) % 251) return 7;
    if (os::CopyOwnMemory(Address(end), copy, 1) != 0) return 8;
    if (os::CopyOwnMemory(0, copy, 1) != 0) return 9;
    munmap(start, (kReadable + 1) * kPage);
    if (os::CopyOwnMemory(Address(start), copy, 1) != 0) return 10;
    return errno == 77 ? 0 : 11;
}

TEST(OwnMemory, IsCopiedUpToThePageThatCantBeRead) {
    EXPECT_EQ(Copies(), 0);
}

TEST(OwnMemory, IsCopiedTheSameWhereTheCallThatCopiesIsRefused) {
    if (test::kIsSanitized) GTEST_SKIP() << "a sanitizer needs the calls itself";
    for (const unsigned int error : {EPERM, ENOSYS}) {
        const int result = test::InChild([error] {
            if (!test::RefuseCalls({SYS_process_vm_readv}, error)) return test::kNotAllowed;
            return Copies();
        });
        if (result == test::kNotAllowed) GTEST_SKIP() << "the system lets no process refuse calls";
        EXPECT_EQ(result, 0) << error;
    }
}

}  // namespace
