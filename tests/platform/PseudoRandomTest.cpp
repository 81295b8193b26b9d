#include <Base/ZBase.h>

#include <gtest/gtest.h>

namespace {

TEST(PseudoRandom, TakesEachValueFromOneToItsBound) {
    int counts[7] = {};
    for (int i = 0; i != 6000; ++i) {
        const unsigned int value = ZBase::GetPseudoRandomInt32(6);
        ASSERT_GE(value, 1u);
        ASSERT_LE(value, 6u);
        ++counts[value];
        ASSERT_EQ(ZBase::GetPseudoRandomInt32(1), 1u);
        ASSERT_EQ(ZBase::GetPseudoRandomInt32(0), 1u);
    }
    for (int value = 1; value != 7; ++value) EXPECT_GT(counts[value], 700) << value;
}

}  // namespace
