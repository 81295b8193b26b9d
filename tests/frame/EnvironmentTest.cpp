#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <limits>
#include <new>

#include "tests/support/Allocations.h"
#include "tests/support/System.h"

namespace {

using namespace ZBase::Literals;
using ZBase::WideString;

class EnvironmentFunctions : public testing::Test {
protected:
    void SetUp() override { test::SetVariable("ZBASE_TEST", nullptr); }
    void TearDown() override { test::SetVariable("ZBASE_TEST", nullptr); }
};

TEST_F(EnvironmentFunctions, UnsetNameIsEmptyOrNull) {
    const ZBase::ReturnWString read = ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w);
    ASSERT_NE(read.c_str(), nullptr);
    EXPECT_EQ(read.GetLength(), 0u);
    EXPECT_EQ(ZBase::GetEnvironmentVariableOrNULL("ZBASE_TEST"_w).c_str(), nullptr);
}

TEST_F(EnvironmentFunctions, NullNameReadsAsEmptyAndSetsNothing) {
    EXPECT_NE(ZBase::ReadEnvironmentVariable(nullptr).c_str(), nullptr);
    EXPECT_EQ(ZBase::GetEnvironmentVariableOrNULL(nullptr).c_str(), nullptr);
    ZBase::SetEnvironmentVariable(nullptr, "x"_w);
}

TEST_F(EnvironmentFunctions, SetValueIsRead) {
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, "value"_w);
    EXPECT_STREQ(std::getenv("ZBASE_TEST"), "value");
    EXPECT_EQ(WideString(ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w).c_str()), WideString("value"_w));
    EXPECT_EQ(WideString(ZBase::GetEnvironmentVariableOrNULL("ZBASE_TEST"_w).c_str()), WideString("value"_w));
}

TEST_F(EnvironmentFunctions, NullValueRemovesTheVariable) {
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, "value"_w);
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, nullptr);
    EXPECT_EQ(ZBase::GetEnvironmentVariableOrNULL("ZBASE_TEST"_w).c_str(), nullptr);
}

TEST_F(EnvironmentFunctions, EmptyValueRemovesTheVariable) {
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, "value"_w);
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, ""_w);
    EXPECT_EQ(std::getenv("ZBASE_TEST"), nullptr);
}

TEST_F(EnvironmentFunctions, NameThatTheSystemRefusesLeavesOnlyItsCode) {
    ZBase::IsSystemError(5);  // the last code is 122 then
    ZBase::SetEnvironmentVariable(""_w, "value"_w);
    EXPECT_EQ(ZBase::GetLastError(), 87u);
    EXPECT_EQ(ZBase::GetEnvironmentVariableOrNULL(""_w).c_str(), nullptr);
}

TEST_F(EnvironmentFunctions, NameEndsAtItsEqualsSign) {
    ZBase::SetEnvironmentVariable("ZBASE_TEST=a"_w, "b"_w);  // the text is "ZBASE_TEST=a=b"
    EXPECT_STREQ(std::getenv("ZBASE_TEST"), "a=b");
}

TEST_F(EnvironmentFunctions, TextsPassTheSystemAsUtf8) {
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, "\u00E9\u20AC\U0001F600"_w);
    EXPECT_STREQ(std::getenv("ZBASE_TEST"), "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    EXPECT_EQ(WideString(ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w).c_str()),
              WideString("\u00E9\u20AC\U0001F600"_w));
}

TEST_F(EnvironmentFunctions, BadUnitsAreReplacedOnTheWayIn) {
    const unsigned short lone[] = {'a', 0xD83D, 'b', 0xDE00, 0xD83D, 0};
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, lone);
    EXPECT_STREQ(std::getenv("ZBASE_TEST"),
                 "a\xEF\xBF\xBD"
                 "b\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST_F(EnvironmentFunctions, BadOctetsAreReplacedOnTheWayOut) {
    test::SetVariable("ZBASE_TEST",
                      "a\xE9"
                      "b\xC0\x80\xE2\x82");
    EXPECT_EQ(WideString(ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w).c_str()),
              WideString("a\uFFFDb\uFFFD\uFFFD\uFFFD\uFFFD"_w));
}

TEST_F(EnvironmentFunctions, WantOfMemoryIsThrownAndNothingLeaks) {
    const WideString value(1000, 'x');
    const std::size_t before = test::LiveBlocks();
    const std::size_t failures = test::ForEachFailingAllocation([&value] {
        try {
            ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, value.c_str());
            EXPECT_EQ(ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w).GetLength(), 1000u);
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_GE(failures, 4u);
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST_F(EnvironmentFunctions, NumberIsTheDefaultWhereEvenTheFailureFindsNoMemory) {
    test::SetVariable("ZBASE_TEST", "abc");
    const std::size_t failures = test::ForEachFailingAllocation(
        [] { EXPECT_EQ(ZBase::GetNumericEnvironmentVariable("ZBASE_TEST", 5), 5); });
    EXPECT_GE(failures, 1u);
}

TEST_F(EnvironmentFunctions, LongValuesPass) {
    const WideString value(100000, 'x');
    ZBase::SetEnvironmentVariable("ZBASE_TEST"_w, value.c_str());
    EXPECT_EQ(WideString(ZBase::ReadEnvironmentVariable("ZBASE_TEST"_w).c_str()), value);
}

TEST(EnvironmentNumberOfNoName, IsTheDefault) {
    EXPECT_EQ(ZBase::GetNumericEnvironmentVariable(nullptr, -777), -777);
    EXPECT_EQ(ZBase::GetNumericEnvironmentVariable("", -777), -777);
}

struct NumericCase {
    const char* value;  // null: not set
    std::int64_t expected;
};

class EnvironmentNumber : public testing::TestWithParam<NumericCase> {};

constexpr std::int64_t kDefault = -777;

TEST_P(EnvironmentNumber, IsTheNumberInFrontOrTheDefault) {
    test::SetVariable("ZBASE_TEST", nullptr);
    if (GetParam().value != nullptr) test::SetVariable("ZBASE_TEST", GetParam().value);
    EXPECT_EQ(ZBase::GetNumericEnvironmentVariable("ZBASE_TEST", kDefault), GetParam().expected);
    test::SetVariable("ZBASE_TEST", nullptr);
}

INSTANTIATE_TEST_SUITE_P(
    Values, EnvironmentNumber,
    testing::Values(NumericCase{nullptr, kDefault}, NumericCase{"42", 42}, NumericCase{"12abc", 12},
                    NumericCase{" \t-5", -5}, NumericCase{"+7", 7}, NumericCase{"0x10", 0},
                    NumericCase{"abc", kDefault}, NumericCase{"", kDefault}, NumericCase{"-", kDefault},
                    NumericCase{"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
                    NumericCase{"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
                    NumericCase{"9223372036854775808", kDefault},
                    NumericCase{"99999999999999999999", kDefault}));

}  // namespace
