// What takes input of a length, at 1, 4 and 16 times that length: work and memory grow in proportion.

#include <TestPlaces.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tests/growth/Judge.h"

namespace test {

const std::vector<Row>& Rows() {
    static const std::vector<Row> sRows = [] {
        std::vector<Row> all;
        for (auto* const some : {TextRows, MessageRows, MessageFormRows, XmlRows, MemoryRows, DiagnosticsRows,
                                 CrashRows, PlatformRows}) {
            std::vector<Row> rows = some();
            std::move(rows.begin(), rows.end(), std::back_inserter(all));
        }
        return all;
    }();
    return sRows;
}

}  // namespace test

namespace {

using test::Growth;
using test::Row;

std::string NameOfTest(const testing::TestParamInfo<std::size_t>& information) {
    std::string name;
    bool begins = true;
    for (const char c : test::Rows()[information.param].name) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            name += begins ? static_cast<char>(std::toupper(static_cast<unsigned char>(c))) : c;
        begins = std::isalnum(static_cast<unsigned char>(c)) == 0;
    }
    return name;
}

class GrowthOfARow : public testing::TestWithParam<std::size_t> {};

TEST_P(GrowthOfARow, TakesWorkAndMemoryInProportion) {
    const Row& row = test::Rows()[GetParam()];
    // A clock is disturbed by what else runs.
    const int tries = test::UsedMeter() == test::EMeter::eClock ? 4 : 2;
    std::string wrong;
    for (int i = 0; i != tries && (i == 0 || !wrong.empty()); ++i) {
        const Growth growth = test::MeasureGrowth(row, i != 0);
        wrong = test::Judge(row, growth);
        std::printf("%-60s %7zu: work %12.0f %5.2f, memory %10.0f %5.2f, allocated %10.0f %5.2f\n",
                    row.name.c_str(), row.length, growth.shortest.work, growth.factor.work,
                    growth.shortest.peak, growth.factor.peak, growth.shortest.handed, growth.factor.handed);
    }
    EXPECT_EQ(wrong, "");
}

INSTANTIATE_TEST_SUITE_P(Growth, GrowthOfARow, testing::Range(std::size_t{0}, test::Rows().size()),
                         NameOfTest);

// The table against the list of what the library exports.

bool Covers(std::string_view row, std::string_view exported) {
    if (row.ends_with('*')) return exported.starts_with(row.substr(0, row.size() - 1));
    const std::size_t start = exported.starts_with("operator") ? std::strlen("operator") + 2 : 0;
    return row == exported || row == exported.substr(0, exported.find_first_of("([", start));
}

/// What neither a row nor a reason names, and the names of what is not there.
std::vector<std::string> Gaps(const std::vector<std::string>& exports,
                              const std::vector<std::string_view>& names) {
    std::vector<std::string> gaps;
    for (const std::string& exported : exports) {
        const auto covers = [&](std::string_view name) { return Covers(name, exported); };
        if (std::none_of(names.begin(), names.end(), covers)) gaps.push_back(exported);
    }
    for (const std::string_view name : names) {
        const auto isCovered = [&](const std::string& exported) { return Covers(name, exported); };
        if (std::none_of(exports.begin(), exports.end(), isCovered))
            gaps.push_back(std::string(name) + " is not exported");
    }
    return gaps;
}

TEST(GrowthTable, HasARowOrAReasonForEachFunctionThatIsExported) {
    std::vector<std::string> exports;
    for (const char* list :
         {ZBASE_SOURCE_DIR "/cmake/exports.txt", ZBASE_SOURCE_DIR "/cmake/exports-zlitexml.txt"}) {
        std::ifstream file(list);
        for (std::string line; std::getline(file, line);) exports.push_back(line);
    }
    ASSERT_GT(exports.size(), 400u);
    std::vector<std::string_view> names;
    for (const Row& row : test::Rows()) names.insert(names.end(), row.covers.begin(), row.covers.end());
    for (const test::WithoutLength& without : test::NamesWithoutLength())
        names.insert(names.end(), without.names.begin(), without.names.end());
    EXPECT_EQ(Gaps(exports, names), std::vector<std::string>{});
}

// The machine itself: it refuses what it is there for.

std::string JudgementOf(const Row& row) {
    return test::Judge(row, test::MeasureGrowth(row));
}

Row Scans() {
    return {
        "looks for the end of a text for each of its octets", {}, 200, [](std::size_t length) -> test::Job {
            const std::string text(length, 'x');
            return [text] {
                volatile std::size_t sum = 0;
                for (std::size_t i = 0; i != text.size(); ++i) {
                    for (const char* at = text.c_str(); *at != 0; ++at) sum = sum + 1;
                }
            };
        }};
}

Row Hoards() {
    return {"keeps a copy of a text for each of its octets", {}, 200, [](std::size_t length) -> test::Job {
                const std::string text(length, 'x');
                return [text] { const std::vector<std::string> copies(text.size(), text); };
            }};
}

Row Discards() {
    return {"makes a copy of a text for each of its octets", {}, 200, [](std::size_t length) -> test::Job {
                const std::string text(length, 'x');
                return [text] {
                    for (std::size_t i = 0; i != text.size(); ++i) const std::string copy(text);
                };
            }};
}

Row Copies() {
    return {"copies a text", {}, 100'000, [](std::size_t length) -> test::Job {
                const std::string text(length, 'x');
                return [text] { const std::string copy(text); };
            }};
}

TEST(GrowthMachine, RefusesWorkThatGrowsWithTheSquare) {
    EXPECT_EQ(JudgementOf(Scans()).substr(0, 11), "work grows ");
}

TEST(GrowthMachine, RefusesMemoryThatGrowsWithTheSquare) {
    EXPECT_NE(JudgementOf(Hoards()).find("; memory grows "), std::string::npos) << JudgementOf(Hoards());
}

TEST(GrowthMachine, RefusesAllocationsThatGrowWithTheSquareAlthoughFewAreHeld) {
    const std::string wrong = JudgementOf(Discards());
    EXPECT_NE(wrong.find("allocated memory grows "), std::string::npos) << wrong;
    EXPECT_EQ(wrong.find("; memory grows "), std::string::npos) << wrong;
}

TEST(GrowthMachine, RefusesMoreThanAReasonAllows) {
    EXPECT_NE(JudgementOf(Scans().May(1.5, "half a square")), "");
    EXPECT_GT(test::MeasureGrowth(Scans().Apart()).factor.work, 2);
}

TEST(GrowthMachine, RefusesAReasonThatNothingNeeds) {
    const Growth linear{{}, {1, 1, 1}};
    EXPECT_EQ(test::Judge(Copies(), linear), "");
    EXPECT_NE(test::Judge(Copies().May(2, "a square"), linear), "");
}

TEST(GrowthMachine, SeesWhatTheTableHasNotGotAndWhatIsNotThere) {
    const std::vector<std::string> exports = {"ZBase::One()", "ZBase::Other(int)", "ZBase::Other(long)"};
    EXPECT_EQ(
        Gaps(exports, {"ZBase::Other(int)", "ZBase::Gone"}),
        (std::vector<std::string>{"ZBase::One()", "ZBase::Other(long)", "ZBase::Gone is not exported"}));
}

}  // namespace

int main(int count, char** arguments) {
    if (count == 2 && std::strcmp(arguments[1], "--meter") == 0) {
        std::puts(test::NameOf(test::UsedMeter()));
        return 0;
    }
    std::setlocale(LC_ALL, "C.UTF-8");
    testing::InitGoogleTest(&count, arguments);
    return RUN_ALL_TESTS();
}
