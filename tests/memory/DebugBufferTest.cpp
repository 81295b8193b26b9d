#include <gtest/gtest.h>
#include <unistd.h>

#include <Base/ZBase.h>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;

TEST(DebugBuffer, AgreesWithAPlainBufferAndTakesHeapBlocks) {
    const std::size_t onBoundary = Buffer::GetOnBoundaryAllocTotal();
    const BufferPtr debug(CreateDebugBuffer(1, 1, nullptr, 0, true));
    const BufferPtr plain(CreateBuffer(1, 1, nullptr, 0, false));
    for (const std::size_t size : {1U, 8U, 100U, 5000U, 0U}) {
        EXPECT_NE(debug->Allocate(size), nullptr);
        plain->Allocate(size);
        EXPECT_EQ(debug->EnsureAvailable(size), plain->EnsureAvailable(size));
        EXPECT_EQ(debug->GetTotalBytes(), plain->GetTotalBytes());
        EXPECT_EQ(debug->GetUsedBytes(), plain->GetUsedBytes());
        EXPECT_EQ(debug->GetTotalKB(), plain->GetTotalKB());
        EXPECT_EQ(debug->GetUsedKB(), plain->GetUsedKB());
    }
    EXPECT_EQ(Buffer::GetOnBoundaryAllocTotal(), onBoundary);
}

TEST(DebugBuffer, HandsLimitLockAndCleanUpsOn) {
    int cleaned = 0;
    {
        const BufferPtr buffer(CreateDebugBuffer(1, 1, nullptr, 4096, false));
        buffer->AddCleanup([](void* argument) { ++*static_cast<int*>(argument); }, &cleaned);
        buffer->SetLimit(1);
        EXPECT_THROW(buffer->Allocate(10000), BufferException);
        buffer->SetLimit(0);
        buffer->Allocate(10000);
        buffer->Lock();
        EXPECT_THROW(buffer->Allocate(1), BufferException);
    }
    EXPECT_EQ(cleaned, 1);
}

TEST(DebugBuffer, IsDetachedFromTheStart) {
    const BufferPtr buffer(CreateDebugBuffer(1, 1, nullptr, 0, false));
    EXPECT_TRUE(buffer->IsDetachedFromGovernors());
    buffer->DetachFromGovernors();
    EXPECT_TRUE(buffer->IsDetachedFromGovernors());
}

TEST(DebugBuffer, DetachingLeavesTheInnerBufferAttached) {
    const test::RecordingGovernor governor;
    {
        const BufferPtr buffer(CreateDebugBuffer(1, 1, nullptr, 4096, false));
        buffer->DetachFromGovernors();
        governor.calls->clear();
        buffer->Allocate(100'000);
        ASSERT_FALSE(governor.calls->empty());
        EXPECT_EQ(governor.calls->front().first, "governor asks");
        governor.calls->clear();
    }
    ASSERT_FALSE(governor.calls->empty());
    EXPECT_EQ(governor.calls->front().first, "governor releases");
}

TEST(DebugBuffer, DeleteDestroysTheInnerBufferAtOnceAndWritesNoFile) {
    std::remove("DebugBuf.log");
    const std::size_t live = test::LiveBlocks();
    Buffer* buffer = CreateDebugBuffer(4, 4, nullptr, 0, true);
    buffer->Allocate(100000);
    buffer->Delete();
    EXPECT_EQ(test::LiveBlocks(), live);
    EXPECT_NE(access("DebugBuf.log", F_OK), 0);
}

TEST(DebugBuffer, FailureOfTheInnerBufferPasses) {
    const std::size_t live = test::LiveBlocks();
    test::ForEachFailingAllocation([] {
        try {
            CreateDebugBuffer(1, 1, nullptr, 0, false)->Delete();
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(test::LiveBlocks(), live);
}

}  // namespace
