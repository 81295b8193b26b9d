// Random programs of operations on a buffer and on its model, compared after each step.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "tests/support/BufferProgram.h"
#include "tests/support/Buffers.h"

namespace {

using test::BufferKind;
using test::BufferPtr;
using test::Implementation;

// The sanitizers shadow each of the chunks, and those are large.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr unsigned int kPrograms = 20;
#else
constexpr unsigned int kPrograms = 200;
#endif

class BufferModelOfAKind : public testing::TestWithParam<BufferKind> {};

INSTANTIATE_TEST_SUITE_P(Each, BufferModelOfAKind, testing::ValuesIn(test::kBufferKinds));

TEST_P(BufferModelOfAKind, AgreesToTheByteOnRandomPrograms) {
    for (unsigned int seed = 0; seed != kPrograms; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> program(1200);
        for (std::uint8_t& byte : program) byte = static_cast<std::uint8_t>(random());
        program.front() = static_cast<std::uint8_t>(GetParam());
        ASSERT_EQ(test::RunBufferProgram(program.data(), program.size()), "") << "seed " << seed;
    }
}

class BufferModelAndBuffer : public testing::TestWithParam<Implementation> {};

INSTANTIATE_TEST_SUITE_P(Both, BufferModelAndBuffer, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

// The step at the growth limit: chunks of 61446 blocks and more are the last that grow the next.
TEST_P(BufferModelAndBuffer, GrowthStopsAtTheLimit) {
    BufferPtr buffer = MakeBuffer(GetParam(), {.onBoundary = true});
    std::vector<std::size_t> chunks;
    while (chunks.size() < 30) {
        const std::size_t before = buffer->GetTotalBytes();
        // The largest piece that is not big fills chunks fast without being rounded to blocks of its own.
        while (buffer->GetTotalBytes() == before)
            buffer->Allocate(std::max<std::size_t>(before / 4, 4096) / 8 * 8);
        chunks.push_back(buffer->GetTotalBytes() - before);
        if (chunks.back() == 377524224) break;
    }
    EXPECT_EQ(chunks.back(), 92169u * 4096);
    EXPECT_NE(std::find(chunks.begin(), chunks.end(), 61446u * 4096), chunks.end());
}

}  // namespace
