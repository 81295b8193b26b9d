#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory_resource>
#include <new>
#include <string>
#include <vector>

#include "tests/support/Buffers.h"

namespace {

using test::Implementation;
using ZBase::BufferPtr;
using ZBase::BufferResource;

class BufferResources : public testing::TestWithParam<Implementation> {
protected:
    const BufferPtr mBuffer = test::MakeBuffer(GetParam());
};

INSTANTIATE_TEST_SUITE_P(Both, BufferResources, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

TEST_P(BufferResources, HoldContainers) {
    BufferResource memory(mBuffer.get());
    std::pmr::vector<int> numbers(&memory);
    std::pmr::map<int, std::pmr::string> names(&memory);
    for (int i = 0; i != 1000; ++i) {
        numbers.push_back(i);
        names[i] = std::to_string(i) + " is longer than what lies in a string itself";
    }
    EXPECT_EQ(numbers[999], 999);
    EXPECT_EQ(names[500].substr(0, 6), "500 is");
    EXPECT_GT(mBuffer->GetUsedBytes(), 1000 * (sizeof(int) + sizeof(std::pmr::string)));
}

TEST_P(BufferResources, AlignAsAskedAndTakeNoMoreWhereNothingIsToBeAligned) {
    BufferResource memory(mBuffer.get());
    for (const std::size_t alignment : {1u, 8u, 16u, 64u, 4096u}) {
        void* const piece = memory.allocate(24, alignment);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(piece) % alignment, 0u);
    }
    const std::size_t used = mBuffer->GetUsedBytes();
    EXPECT_NE(memory.allocate(0, 1), nullptr);
    EXPECT_NE(memory.allocate(24, 8), nullptr);
    EXPECT_EQ(mBuffer->GetUsedBytes(), used + 8 + 24);
}

TEST_P(BufferResources, GiveNothingBack) {
    BufferResource memory(mBuffer.get());
    void* const piece = memory.allocate(100, 8);
    const std::size_t used = mBuffer->GetUsedBytes();
    memory.deallocate(piece, 100, 8);
    EXPECT_EQ(mBuffer->GetUsedBytes(), used);
    EXPECT_NE(memory.allocate(100, 8), piece);
}

TEST_P(BufferResources, OverOneBufferAreEqual) {
    const BufferPtr other = test::MakeBuffer(GetParam());
    const BufferResource first(mBuffer.get());
    const BufferResource second(mBuffer.get());
    EXPECT_EQ(first, second);
    EXPECT_NE(first, BufferResource(other.get()));
    EXPECT_FALSE(first.is_equal(*std::pmr::new_delete_resource()));
    EXPECT_EQ(first.GetBuffer(), mBuffer.get());
}

TEST_P(BufferResources, FailAsTheBufferDoes) {
    BufferResource memory(mBuffer.get());
    volatile std::size_t all = SIZE_MAX;  // volatile, or the compiler warns that no object can be so large
    EXPECT_THROW(static_cast<void>(memory.allocate(all / 2, 8)), std::bad_alloc);
    EXPECT_THROW(static_cast<void>(memory.allocate(all, 64)), std::bad_alloc);
    mBuffer->Lock();
    std::pmr::vector<int> numbers(&memory);
    EXPECT_THROW(numbers.push_back(1), ZBase::BufferException);
    EXPECT_TRUE(numbers.empty());
}

}  // namespace
