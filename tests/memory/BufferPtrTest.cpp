#include <Base/ZBase.h>

#include <gtest/gtest.h>

namespace {

using ZBase::BufferPtr;

TEST(BufferPtr, DeletesByDelete) {
    int runs = 0;
    {
        const BufferPtr buffer(ZBase::CreateBufferSingleThread(1, 1, nullptr, 0, false));
        buffer->AddCleanup([](void* count) { ++*static_cast<int*>(count); }, &runs);
        const BufferPtr none;
    }
    EXPECT_EQ(runs, 1);
}

}  // namespace
