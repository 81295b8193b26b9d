#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

int gCalls = 0;
std::size_t gLastSize = 0;
alignas(4096) char gPages[16 * kPage];

void* AllocateOwn(std::size_t size) {
    ++gCalls;
    gLastSize = size;
    return gPages;
}
int FreeOwn(void*, std::size_t size) {
    ++gCalls;
    gLastSize = size;
    return 7;
}
int ProtectOwn(void*, std::size_t) {
    ++gCalls;
    return 0;
}

class VirtualMemory : public testing::Test {
protected:
    void SetUp() override { gCalls = 0; }
    void TearDown() override {
        UnSetCallBackVirtualAlloc();
        SetCallBackVirtualFree(nullptr);
        UnSetCallBackVirtualProtect();
    }
};
using VirtualMemoryDeathTest = VirtualMemory;

TEST_F(VirtualMemory, PagesAreZeroedAlignedAndWritable) {
    auto* const memory = static_cast<unsigned char*>(ZNTVirtualAlloc(3 * kPage + 1, true));
    ASSERT_NE(memory, nullptr);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(memory) % kPage, 0u);
    for (std::size_t i = 0; i != 4 * kPage; ++i) ASSERT_EQ(memory[i], 0);
    std::memset(memory, 1, 4 * kPage);
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 0);
}

TEST_F(VirtualMemory, ImpossibleSizesGiveNull) {
    EXPECT_EQ(ZNTVirtualAlloc(0, true), nullptr);
    EXPECT_EQ(GetLastError(), 87u);
    for (const std::size_t size : {kMax, kMax - kPage, kMax / 2}) {
        EXPECT_EQ(ZNTVirtualAlloc(size, true), nullptr);
        EXPECT_EQ(GetLastError(), 8u);
    }
}

TEST_F(VirtualMemory, OnlyTheStartOfAnAllocationCanBeFreedAndOnlyOnce) {
    auto* const memory = static_cast<char*>(ZNTVirtualAlloc(2 * kPage, true));
    EXPECT_EQ(ZNTVirtualFree(memory + kPage, 0, true), 1);
    EXPECT_EQ(GetLastError(), 487u);
    EXPECT_EQ(ZNTVirtualFree(nullptr, 0, true), 1);
    EXPECT_EQ(ZNTVirtualFree(memory, 12345, true), 0);  // the size is ignored
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 1);
}

TEST_F(VirtualMemory, AllocationCallbackServesOnlyWhoAsksForIt) {
    SetCallBackVirtualAlloc(AllocateOwn);
    void* const memory = ZNTVirtualAlloc(kPage, false);
    EXPECT_EQ(gCalls, 0);
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 0);
    EXPECT_EQ(ZNTVirtualAlloc(kPage, true), gPages);
    EXPECT_EQ(gCalls, 1);
    UnSetCallBackVirtualAlloc();
    void* const other = ZNTVirtualAlloc(kPage, true);
    EXPECT_NE(other, gPages);
    EXPECT_EQ(ZNTVirtualFree(other, 0, true), 0);
}

TEST_F(VirtualMemory, ReleaseCallbackGivesItsOwnResult) {
    SetCallBackVirtualFree(FreeOwn);
    EXPECT_EQ(ZNTVirtualFree(gPages, 5, true), 7);
    EXPECT_EQ(gLastSize, 5u);
    EXPECT_EQ(ZNTVirtualFree(gPages, 5, false), 1);
    EXPECT_EQ(gCalls, 1);
}

TEST_F(VirtualMemory, ProtectionCallbackForbidsProtectionAndIsNotCalled) {
    void* const memory = ZNTVirtualAlloc(kPage, true);
    SetCallBackVirtualProtect(ProtectOwn);
    EXPECT_EQ(ZNTVirtualProtect(memory, kPage, false), 1);
    EXPECT_EQ(ZNTVirtualProtect(memory, kPage, true), 1);
    EXPECT_EQ(gCalls, 0);
    UnSetCallBackVirtualProtect();
    EXPECT_EQ(ZNTVirtualProtect(memory, kPage, false), 0);
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 0);
}

TEST_F(VirtualMemoryDeathTest, ProtectedPagesCanBeReadAndNotWritten) {
    auto* const memory = static_cast<volatile char*>(ZNTVirtualAlloc(3 * kPage, true));
    memory[kPage] = 'a';
    // Two bytes touch two pages.
    EXPECT_EQ(ZNTVirtualProtect(const_cast<char*>(memory) + kPage - 1, 2, false), 0);
    EXPECT_EQ(memory[kPage], 'a');
    EXPECT_DEATH(memory[0] = 'b', "");
    EXPECT_DEATH(memory[2 * kPage - 1] = 'b', "");
    memory[2 * kPage] = 'b';
    EXPECT_EQ(ZNTVirtualFree(const_cast<char*>(memory), 0, true), 0);
}

TEST_F(VirtualMemory, ProtectionOfForeignMemoryTakesOnlyThePagesInsideTheRange) {
    alignas(4096) static volatile char memory[4 * kPage];
    EXPECT_EQ(ZNTVirtualProtect(const_cast<char*>(memory) + 1, 3 * kPage, false), 0);
    memory[0] = 'a';          // the first page is not wholly inside
    memory[3 * kPage] = 'a';  // nor is the last
    EXPECT_EQ(ZNTVirtualProtect(const_cast<char*>(memory) + 3 * kPage, kPage - 1, false), 0);
    memory[3 * kPage] = 'b';
}

TEST_F(VirtualMemory, ProtectionOfNothingSucceeds) {
    EXPECT_EQ(ZNTVirtualProtect(nullptr, 0, false), 0);
}

TEST_F(VirtualMemory, ProtectionBeyondAnAllocationOrOfNoMemoryFails) {
    auto* const memory = static_cast<char*>(ZNTVirtualAlloc(2 * kPage, true));
    EXPECT_EQ(ZNTVirtualProtect(memory, 2 * kPage + 1, false), 1);
    EXPECT_EQ(GetLastError(), 487u);
    EXPECT_EQ(ZNTVirtualProtect(memory, kMax, false), 1);
    EXPECT_EQ(ZNTVirtualProtect(memory + kPage, kMax - kPage, false), 1);
    memory[0] = 'a';
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 0);
    EXPECT_EQ(ZNTVirtualProtect(nullptr, kPage, false), 1);
}

TEST_F(VirtualMemoryDeathTest, DecommittedPagesKeepTheirAddressesAndFault) {
    auto* const memory = static_cast<volatile char*>(ZNTVirtualAlloc(3 * kPage, true));
    for (const std::size_t page : {0, 1, 2}) memory[page * kPage] = 'a';
    EXPECT_TRUE(ZNTDeCommit(const_cast<char*>(memory) + kPage, kPage));
    EXPECT_EQ(memory[0], 'a');
    EXPECT_EQ(memory[2 * kPage], 'a');
    EXPECT_DEATH((void)memory[kPage], "");
    EXPECT_TRUE(ZNTDeCommit(const_cast<char*>(memory), 0));  // all of it
    EXPECT_DEATH((void)memory[0], "");
    EXPECT_EQ(ZNTVirtualFree(const_cast<char*>(memory), 0, true), 0);
}

TEST_F(VirtualMemory, DecommitOfForeignMemoryIsRefused) {
    EXPECT_FALSE(ZNTDeCommit(gPages, kPage));
    EXPECT_EQ(GetLastError(), 487u);
    EXPECT_FALSE(ZNTDeCommit(nullptr, 0));
    auto* const memory = static_cast<char*>(ZNTVirtualAlloc(kPage, true));
    EXPECT_FALSE(ZNTDeCommit(memory, kPage + 1));
    EXPECT_FALSE(ZNTDeCommit(memory + 8, 0));
    EXPECT_EQ(ZNTVirtualFree(memory, 0, true), 0);
}

class VirtualMemoryOfABuffer : public testing::TestWithParam<test::Implementation> {};

INSTANTIATE_TEST_SUITE_P(Both, VirtualMemoryOfABuffer, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(VirtualMemoryOfABuffer, OnBoundaryChunksComeFromTheHostAndGoBackWithoutASize) {
    gCalls = 0;
    SetCallBackVirtualAlloc(AllocateOwn);
    SetCallBackVirtualFree(FreeOwn);
    test::BufferPtr buffer = test::MakeBuffer(GetParam(), {.blockSize = 256, .onBoundary = true});
    EXPECT_EQ(buffer->Allocate(8), gPages);
    EXPECT_EQ(gLastSize, kPage);
    buffer->Lock();
    buffer.reset();
    EXPECT_EQ(gCalls, 2);
    EXPECT_EQ(gLastSize, 0u);
    UnSetCallBackVirtualAlloc();
    SetCallBackVirtualFree(nullptr);
    std::memset(gPages, 1, sizeof gPages);  // memory is writable when the host gets it back
}

TEST_P(VirtualMemoryOfABuffer, HeapChunksDoNot) {
    gCalls = 0;
    SetCallBackVirtualAlloc(AllocateOwn);
    test::MakeBuffer(GetParam())->Allocate(8);
    EXPECT_EQ(gCalls, 0);
    UnSetCallBackVirtualAlloc();
}

TEST_P(VirtualMemoryOfABuffer, HostWithoutMemoryIsBadAllocation) {
    SetCallBackVirtualAlloc([](std::size_t) -> void* { return nullptr; });
    const std::size_t before = Buffer::GetOnBoundaryAllocTotal();
    test::BufferPtr buffer = test::MakeBuffer(GetParam(), {.onBoundary = true});
    EXPECT_THROW(buffer->Allocate(8), std::bad_alloc);
    EXPECT_FALSE(buffer->EnsureAvailable(8));
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before);
    EXPECT_EQ(buffer->GetTotalBytes(), 0u);
    UnSetCallBackVirtualAlloc();
    buffer->Allocate(8);
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), before + buffer->GetTotalBytes());
}

}  // namespace
