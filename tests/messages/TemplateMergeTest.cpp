#include <Base/messages/MessageFormat.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/SlowTemplateMerge.h"

namespace {

using namespace ZBase;
using Texts = std::vector<std::string>;

std::vector<const char*> Pointers(const Texts& texts) {
    std::vector<const char*> pointers;
    for (const std::string& text : texts) pointers.push_back(text.c_str());
    pointers.push_back(nullptr);
    return pointers;
}

std::string Merged(const std::string& text, const Texts& parameters) {
    const ReturnString merged = MergeParametersIntoTemplate(text.c_str(), Pointers(parameters).data());
    return merged.c_str() == nullptr ? "(null)" : merged.c_str();
}

TEST(TemplateMerge, PlaceholdersAreReplaced) {
    EXPECT_EQ(Merged("%1 and %2", {"a", "b"}), "a and b");
    EXPECT_EQ(Merged("%1", {"whole"}), "whole");
    EXPECT_EQ(Merged("%1%2%1", {"a", "b"}), "aba");
}

TEST(TemplateMerge, ParameterMayBeUsedInAnyOrderAnyNumberOfTimes) {
    EXPECT_EQ(Merged("%2 %1 %1", {"a", "b"}), "b a a");
}

TEST(TemplateMerge, UnusedParametersFollowInBrackets) {
    EXPECT_EQ(Merged("x", {"a", "b"}), "x[a][b]");
    EXPECT_EQ(Merged("%2", {"a", "b", "c"}), "b[a][c]");
    EXPECT_EQ(Merged("", {"a"}), "[a]");
    EXPECT_EQ(Merged("x", {""}), "x[]");
}

TEST(TemplateMerge, PlaceholderWithoutAParameterStays) {
    EXPECT_EQ(Merged("%1 %3", {"a"}), "a %3");
    EXPECT_EQ(Merged("%1%9", {}), "%1%9");
    EXPECT_EQ(Merged("%9", {"1", "2", "3", "4", "5", "6", "7", "8"}), "%9[1][2][3][4][5][6][7][8]");
}

TEST(TemplateMerge, PercentSignThatIsNoPlaceholder) {
    EXPECT_EQ(Merged("100%%", {}), "100%");
    EXPECT_EQ(Merged("100%", {}), "100%");
    EXPECT_EQ(Merged("5%x", {}), "5%x");
    EXPECT_EQ(Merged("%0", {"a"}), "%0[a]");
    EXPECT_EQ(Merged("%:%/", {"a"}), "%:%/[a]");    // beside the digits
    EXPECT_EQ(Merged("%\xB1", {"a"}), "%\xB1[a]");  // "1" with the top bit
}

TEST(TemplateMerge, SecondOfTwoPercentSignsBeginsNoPlaceholder) {
    EXPECT_EQ(Merged("%%1", {"a"}), "%1[a]");
    EXPECT_EQ(Merged("%%%1", {"a"}), "%a");
    EXPECT_EQ(Merged("%%%", {}), "%%");
    EXPECT_EQ(Merged("%%%%", {}), "%%");
    EXPECT_EQ(Merged("%x%1", {"a"}), "%xa");
}

TEST(TemplateMerge, PlaceholderHasOneDigit) {
    EXPECT_EQ(Merged("%10", {"a"}), "a0");
    EXPECT_EQ(Merged("%01", {"a"}), "%01[a]");
}

TEST(TemplateMerge, TenthAndLaterParametersFollowInBrackets) {
    const Texts eleven = {"1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11"};
    EXPECT_EQ(Merged("%1", eleven), "1[2][3][4][5][6][7][8][9][10][11]");
    EXPECT_EQ(Merged("%9%8%7%6%5%4%3%2%1", eleven), "987654321[10][11]");
    EXPECT_EQ(Merged("", Texts(eleven.begin(), eleven.begin() + 9)), "[1][2][3][4][5][6][7][8][9]");
}

TEST(TemplateMerge, ParametersAreNotLookedIntoForPlaceholders) {
    EXPECT_EQ(Merged("%1 %2", {"%2", "%%"}), "%2 %%");
    EXPECT_EQ(Merged("x", {"%1"}), "x[%1]");
}

TEST(TemplateMerge, NothingGivesAnEmptyTextNotNull) {
    EXPECT_EQ(Merged("", {}), "");
    EXPECT_EQ(Merged("%1", {""}), "");
}

TEST(TemplateMerge, NullTemplateIsEmptyAndNullParametersAreNone) {
    const char* const parameters[] = {"a", nullptr};
    EXPECT_STREQ(MergeParametersIntoTemplate(nullptr, parameters).c_str(), "[a]");
    EXPECT_STREQ(MergeParametersIntoTemplate("%1", nullptr).c_str(), "%1");
    EXPECT_STREQ(MergeParametersIntoTemplate(nullptr, nullptr).c_str(), "");
}

TEST(TemplateMerge, AgreesWithASlowModelOnRandomTemplates) {
    std::mt19937 random(20240229);
    const auto draw = [&random](std::size_t limit) { return random() % limit; };
    const std::string alphabet = "%%%%%%%%0123456789:/x [\xC3\xB1";
    for (int round = 0; round != 50000; ++round) {
        std::string text;
        for (std::size_t length = draw(24); text.size() != length;) text += alphabet[draw(alphabet.size())];
        Texts parameters(draw(13));
        for (std::string& parameter : parameters) {
            for (std::size_t length = draw(5); parameter.size() != length;)
                parameter += alphabet[draw(alphabet.size())];
        }
        ASSERT_EQ(Merged(text, parameters), test::SlowlyMerged(text, parameters)) << text;
    }
}

TEST(TemplateMerge, AgreesWithTheModelOnEveryShortTemplate) {
    const std::string alphabet = "%019x";
    const Texts parameters = {"a", "b"};
    for (std::size_t length = 0, count = 1; length <= 6; ++length, count *= alphabet.size()) {
        for (std::size_t index = 0; index != count; ++index) {
            std::string text;
            for (std::size_t rest = index; text.size() != length; rest /= alphabet.size()) {
                text += alphabet[rest % alphabet.size()];
            }
            ASSERT_EQ(Merged(text, parameters), test::SlowlyMerged(text, parameters)) << text;
        }
    }
}

TEST(TemplateMerge, HugeResultIsWhole) {
    const std::string megabyte(1 << 20, 'm');
    std::string text;
    for (int i = 0; i != 64; ++i) text += "%1|";
    const std::string merged = Merged(text, {megabyte});
    ASSERT_EQ(merged.size(), 64 * (megabyte.size() + 1));
    EXPECT_EQ(merged.substr(megabyte.size() - 1, 3), "m|m");
    EXPECT_EQ(merged.back(), '|');
}

TEST(TemplateMerge, MakesOneAllocation) {
    const std::string longText(1000, 'x');
    for (const Texts& parameters : {Texts{}, Texts{"a"}, Texts(20, longText)}) {
        for (const std::string& text : {std::string(), std::string("%1 %2 %%"), longText}) {
            const auto pointers = Pointers(parameters);
            const std::size_t before = test::AllocationCount();
            const ReturnString merged = MergeParametersIntoTemplate(text.c_str(), pointers.data());
            EXPECT_EQ(test::AllocationCount() - before, 1u);
        }
    }
}

TEST(TemplateMerge, WantOfMemoryIsThrownAndNothingLeaks) {
    const Texts parameters = {"a", "b"};
    const auto pointers = Pointers(parameters);
    const std::size_t before = test::LiveBlocks();
    {
        test::FailingAllocation failing(0);
        EXPECT_THROW(MergeParametersIntoTemplate("%1", pointers.data()), std::bad_alloc);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

}  // namespace
