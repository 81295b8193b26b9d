// Under AddressSanitizer bytes of a chunk that were not handed out are poisoned.

#include <gtest/gtest.h>

#include "tests/support/Buffers.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>

namespace {

using test::BufferPtr;
using test::Implementation;

bool IsPoisoned(const void* start, std::size_t size) {
    for (std::size_t i = 0; i != size; ++i)
        if (!__asan_address_is_poisoned(static_cast<const char*>(start) + i)) return false;
    return true;
}

bool IsFree(void* start, std::size_t size) {
    return __asan_region_is_poisoned(start, size) == nullptr;
}

class Poison : public testing::TestWithParam<std::tuple<Implementation, bool>> {
protected:
    BufferPtr Make() {
        return test::MakeBuffer(std::get<0>(GetParam()),
                                {.initialBlocks = 1, .onBoundary = std::get<1>(GetParam())});
    }
};

INSTANTIATE_TEST_SUITE_P(Both, Poison,
                         testing::Combine(testing::ValuesIn(test::kImplementations), testing::Bool()));

TEST_P(Poison, OnlyWhatWasHandedOutCanBeTouched) {
    BufferPtr buffer = Make();
    auto* const first = static_cast<char*>(buffer->Allocate(13));
    EXPECT_TRUE(IsFree(first, 16));
    EXPECT_TRUE(IsPoisoned(first + 16, 4096 - 16));
    auto* const second = static_cast<char*>(buffer->Allocate(100));
    EXPECT_TRUE(IsFree(second, 104));
    EXPECT_TRUE(IsPoisoned(second + 104, 4096 - 120));
}

TEST_P(Poison, EnsuredMemoryIsNotHandedOut) {
    BufferPtr buffer = Make();
    auto* const first = static_cast<char*>(buffer->Allocate(8));
    EXPECT_TRUE(buffer->EnsureAvailable(1000));
    EXPECT_TRUE(IsPoisoned(first + 8, 4088));
}

TEST_P(Poison, MemoryThatWentBackIsAnybodysAgain) {
    for (int i = 0; i != 100; ++i) {
        BufferPtr buffer = Make();
        buffer->Allocate(8);
        buffer.reset();
        auto* const memory = static_cast<char*>(ZBase::ZNTVirtualAlloc(4096, false));
        EXPECT_TRUE(IsFree(memory, 4096));
        ZBase::ZNTVirtualFree(memory, 0, false);
    }
}

TEST_P(Poison, BigAllocationIsFree) {
    constexpr std::size_t kGrowLimit = 268435456;
    BufferPtr buffer = Make();
    auto* const piece = static_cast<char*>(buffer->Allocate(kGrowLimit));
    EXPECT_TRUE(IsFree(piece, kGrowLimit));
}

TEST_P(Poison, CleanupNodesCanBeWritten) {
    BufferPtr buffer = Make();
    buffer->AddCleanup([](void*) {}, nullptr);
    buffer->Lock();
}

}  // namespace
#endif
