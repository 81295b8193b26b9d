#include "tests/support/Allocations.h"
#include "tests/support/MessageProgram.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

// Random programs on messages of six kinds and on models of them.
TEST(MessageModel, RandomProgramsLeaveWhatTheModelSays) {
    const std::size_t live = test::LiveBlocks();
    for (unsigned int seed = 0; seed != 3000; ++seed) {
        std::mt19937 random(seed);
        std::vector<std::uint8_t> program(400);
        for (std::uint8_t& byte : program) byte = static_cast<std::uint8_t>(random());
        ASSERT_EQ(test::RunMessageProgram(program.data(), program.size()), "") << "seed " << seed;
    }
    EXPECT_EQ(test::LiveBlocks(), live);
}
