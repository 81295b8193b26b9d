#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/Buffers.h"

namespace {

using test::Implementation;
using ZBase::BufferPtr;
using ZBase::MemoryCeiling;

TEST(MemoryCeiling, CountsWhatAllBuffersHoldAndRefusesTheRest) {
    const MemoryCeiling ceiling(20'000);
    {
        const BufferPtr first = test::MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 2});
        const BufferPtr second = test::MakeBuffer(Implementation::kLockFree, {.initialBlocks = 2});
        EXPECT_EQ(ceiling.GetHeld(), 16'384u);
        const std::string text =
            test::TextOfFailure<ZBase::MemGoverningException>([&] { second->Allocate(9000); });
        EXPECT_NE(text.find("may hold 20000 bytes and hold 16384; "), std::string::npos) << text;
        EXPECT_EQ(ceiling.GetRefusals(), 1u);
    }
    EXPECT_EQ(ceiling.GetHeld(), 0u);
    EXPECT_EQ(ceiling.GetCeiling(), 20'000u);
}

TEST(MemoryCeiling, ABufferFromBeforeTakesNothingOffWhatOthersHold) {
    BufferPtr before = test::MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 2});
    const MemoryCeiling ceiling(20'000);
    before.reset();
    EXPECT_EQ(ceiling.GetHeld(), 0u);
    const BufferPtr after = test::MakeBuffer(Implementation::kSingleThread, {.initialBlocks = 2});
    EXPECT_EQ(ceiling.GetHeld(), 8192u);
}

TEST(MemoryCeiling, IsNoLongerAskedOnceItIsGone) {
    {
        const MemoryCeiling ceiling(0);
        EXPECT_THROW(test::MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1}),
                     ZBase::MemGoverningException);
    }
    EXPECT_NO_THROW(test::MakeBuffer(Implementation::kLockFree, {.initialBlocks = 1}));
}

}  // namespace
