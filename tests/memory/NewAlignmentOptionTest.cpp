// This file is compiled with `-faligned-new=8`, so the compiler uses the aligned placement forms for every
// type that needs more than 8 bytes.

#include <Base/memory/Buffer.h>

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/support/Buffers.h"

namespace {

struct alignas(16) Sixteen {
    unsigned char bytes[16];
};

TEST(NewAlignmentOption, AlignsWhatNeedsExactlySixteen) {
    static_assert(__STDCPP_DEFAULT_NEW_ALIGNMENT__ == 8);
    for (const auto implementation : test::kImplementations) {
        const test::BufferPtr buffer = test::MakeBuffer(implementation);
        for (int i = 0; i != 5; ++i) {
            buffer->Allocate(8);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(new (buffer.get()) Sixteen) % 16, 0u);
            buffer->Allocate(8);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(new (buffer.get()) Sixteen[2]) % 16, 0u);
        }
    }
}

}  // namespace
