#include <Base/platform/PseudoRandom.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>

// The C library's generator, set by the test.

namespace {

int gRandom = 0;
int gSeeded = 0;
unsigned int gSeed = 0;

// The generator's value for 15 bits of it.
void SetBits(int bits) {
    gRandom = bits * ((RAND_MAX >> 15) + 1);
}

}  // namespace

extern "C" int rand() noexcept {
    return gRandom;
}

extern "C" void srand(unsigned int seed) noexcept {
    ++gSeeded;
    gSeed = seed;
}

namespace {

using ZBase::GetPseudoRandomInt32;

TEST(PseudoRandom, BoundsAreBothIncluded) {
    SetBits(0);
    EXPECT_EQ(GetPseudoRandomInt32(6), 1u);
    SetBits(32767);
    EXPECT_EQ(GetPseudoRandomInt32(6), 6u);
    gRandom = RAND_MAX;
    EXPECT_EQ(GetPseudoRandomInt32(6), 6u);
}

TEST(PseudoRandom, IsTruncated) {
    SetBits(5461);  // 5461 / 32768 * 6 = 0.9999
    EXPECT_EQ(GetPseudoRandomInt32(6), 1u);
    SetBits(5462);  // 1.0001
    EXPECT_EQ(GetPseudoRandomInt32(6), 2u);
}

TEST(PseudoRandom, OfZeroAndOneIsOne) {
    for (const int bits : {0, 1, 16384, 32767}) {
        SetBits(bits);
        EXPECT_EQ(GetPseudoRandomInt32(0), 1u);
        EXPECT_EQ(GetPseudoRandomInt32(1), 1u);
    }
}

TEST(PseudoRandom, OfLargeBoundsStaysInside) {
    SetBits(32767);
    EXPECT_EQ(GetPseudoRandomInt32(32768), 32768u);
    EXPECT_EQ(GetPseudoRandomInt32(65536), 65535u);  // 32767 * 2 + 1
    EXPECT_EQ(GetPseudoRandomInt32(0xFFFFFFFF), 4294836224u);
    SetBits(1);
    EXPECT_EQ(GetPseudoRandomInt32(0xFFFFFFFF), 131072u);  // 131071.99..., truncated, and 1
}

TEST(PseudoRandom, SeedsOnceFromTheTime) {
    GetPseudoRandomInt32(6);
    GetPseudoRandomInt32(6);
    EXPECT_EQ(gSeeded, 1);
    const auto now = static_cast<unsigned int>(std::time(nullptr));
    EXPECT_LE(gSeed, now + 999);
    EXPECT_GE(gSeed, now - 600);
}

}  // namespace
