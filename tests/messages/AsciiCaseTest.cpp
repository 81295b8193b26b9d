#include <Base/messages/detail/AsciiCase.h>

#include <gtest/gtest.h>

namespace {

using namespace ZBase;

TEST(AsciiCase, OnlyTheLettersHaveTwoForms) {
    for (int one = 1; one != 256; ++one) {
        for (int other = 1; other != 256; ++other) {
            const bool letters = (one | 0x20) >= 'a' && (one | 0x20) <= 'z' && (one | 0x20) == (other | 0x20);
            const char left[] = {static_cast<char>(one), 0};
            const char right[] = {static_cast<char>(other), 0};
            EXPECT_EQ(detail::EqualsInAnyAsciiCase(left, right), one == other || letters);
        }
    }
}

}  // namespace
