#include <Base/diagnostics/CallStackLogger.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <iostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Stacks.h"
#include "tests/support/TemporaryFile.h"

using test::StayHere;
using test::TemporaryFile;
using ZBase::CallStackLogger;
using ZBase::CallStackRec;

[[gnu::noinline]] void AppendOnce(CallStackLogger& logger, unsigned int category, unsigned long skip) {
    logger.AppendCallStack(category, skip);
    StayHere();
}

[[gnu::noinline]] void AppendDeep(CallStackLogger& logger, int depth, unsigned long skip = 0) {
    if (depth != 0)
        AppendDeep(logger, depth - 1, skip);
    else
        AppendOnce(logger, 0, skip);
    StayHere();
}

namespace {

/// Appends for each value from the same place, so that the stacks are equal.
[[gnu::noinline]] void ForEach(const std::vector<unsigned long>& values,
                               const std::function<void(unsigned long)>& append) {
    for (std::size_t i = 0; i != values.size(); ++i) append(values[i]);
}

std::vector<CallStackRec> Records(const CallStackLogger& logger) {
    std::vector<CallStackRec> records;
    for (const CallStackRec* record : logger) records.push_back(*record);
    return records;
}

/// Appends a record and makes it one of these addresses.
void AppendMade(CallStackLogger& logger, unsigned int category, const std::vector<std::uint64_t>& addresses) {
    AppendOnce(logger, category, 39);
    CallStackRec& record = **std::prev(logger.end());
    std::copy(addresses.begin(), addresses.end(), record.addresses);
}

std::string ReportOf(CallStackLogger& logger, std::string* output = nullptr) {
    const TemporaryFile file;
    testing::internal::CaptureStdout();
    logger.FprintfCallStack(file.Path());
    const std::string written = testing::internal::GetCapturedStdout();
    if (output != nullptr) *output = written;
    return file.Text();
}

TEST(CallStackLogger, EmptyOneWritesAnEmptyFileAndATotalOfZero) {
    CallStackLogger logger;
    std::string output;
    EXPECT_EQ(ReportOf(logger, &output), "");
    EXPECT_EQ(output, "Total Call Stacks Captured: 0\n");
}

TEST(CallStackLogger, RecordHasItsCategoryOrZeroAndCountsOne) {
    CallStackLogger logger;
    logger.AppendCallStack(7, 0);
    logger.AppendCallStack(0);
    EXPECT_EQ(Records(logger)[0].lockCategory, 7U);
    EXPECT_EQ(Records(logger)[1].lockCategory, 0U);
    EXPECT_EQ(Records(logger)[1].count, 1U);
}

TEST(CallStackLogger, SkipLeavesTheInnermostOut) {
    CallStackLogger logger;
    ForEach({0, 2}, [&](unsigned long skip) { AppendOnce(logger, 0, skip); });
    const std::vector<CallStackRec> records = Records(logger);
    for (int i = 0; i != 5; ++i) EXPECT_EQ(records[1].addresses[i], records[0].addresses[i + 2]);
}

TEST(CallStackLogger, RecordHoldsAtMost32Addresses) {
    CallStackLogger logger;
    AppendDeep(logger, 100);
    EXPECT_NE(Records(logger)[0].addresses[31], 0U);
}

TEST(CallStackLogger, SkipOf39OrMoreGivesARecordWithoutAddresses) {
    CallStackLogger logger;
    for (const unsigned long skip : {39UL, 40UL, ~0UL}) AppendOnce(logger, 3, skip);
    const std::string record = "<start>\nLock Category = 3\nCount = 1\n<end>\n\n";
    EXPECT_EQ(ReportOf(logger), record + record + record);
}

TEST(CallStackLogger, SkipOf38GivesOneAddress) {
    CallStackLogger logger;
    AppendDeep(logger, 100, 38);
    EXPECT_NE(Records(logger)[0].addresses[0], 0U);
    EXPECT_EQ(Records(logger)[0].addresses[1], 0U);
}

TEST(CallStackLogger, CountIsUnsigned) {
    CallStackLogger logger;
    AppendMade(logger, 0, {});
    (*logger.begin())->count = 0x80000001;
    std::string output;
    EXPECT_EQ(ReportOf(logger, &output), "<start>\nLock Category = 0\nCount = 2147483649\n<end>\n\n");
    EXPECT_EQ(output, "Total Call Stacks Captured: 2147483649\n");
}

TEST(CallStackLogger, TotalIsDecimalWhateverTheStreamIsSetTo) {
    CallStackLogger logger;
    AppendMade(logger, 0, {});
    (*logger.begin())->count = 10'000;
    std::string output;
    std::cout << std::hex << std::showbase;
    ReportOf(logger, &output);
    std::cout << std::dec << std::noshowbase;
    EXPECT_EQ(output, "Total Call Stacks Captured: 10000\n");
}

TEST(CallStackLogger, RecordsStayWhenTheyAreFoldedAndWhenTheLoggerIsGone) {
    const CallStackRec* first = nullptr;
    const CallStackRec* second = nullptr;
    {
        CallStackLogger logger;
        AppendMade(logger, 4, {1, 2});
        AppendMade(logger, 4, {1, 2});
        first = *logger.begin();
        second = *std::next(logger.begin());
        logger.RemoveDuplicates();
    }
    EXPECT_EQ(first->count, 2U);
    EXPECT_EQ(second->count, 1U);
    EXPECT_EQ(second->addresses[1], 2U);
}

TEST(CallStackLogger, WithoutMemoryKeepsWhatIsThereAndNoLock) {
    CallStackLogger logger;
    AppendMade(logger, 0, {1});
    AppendMade(logger, 0, {1});
    AppendMade(logger, 0, {2});
    std::size_t thrown = 0;
    const auto attempt = [&thrown](auto operation) {
        return test::ForEachFailingAllocation([&] {
            try {
                operation();
            } catch (const std::bad_alloc&) {
                ++thrown;
            }
        });
    };
    EXPECT_EQ(attempt([&] { logger.AppendCallStack(0, 39); }), 2U);  // the record and the list's node
    EXPECT_EQ(attempt([&] { logger.AppendCallStack(39); }), 2U);
    EXPECT_EQ(Records(logger).size(), 5U);
    EXPECT_GT(attempt([&] { logger.RemoveDuplicates(); }), 0U);
    EXPECT_GT(thrown, 4U);
    EXPECT_EQ(Records(logger).size(), 3U);
}

TEST(CallStackLogger, UnknownAddressKeepsItsSeparators) {
    CallStackLogger logger;
    AppendMade(logger, 0, {0xABC});
    EXPECT_EQ(ReportOf(logger), "<start>\nLock Category = 0\nCount = 1\n0xabc #  #  #  # \n<end>\n\n");
}

TEST(CallStackLogger, EqualStacksOfOneCategoryFold) {
    CallStackLogger logger;
    ForEach({5, 5},
            [&](unsigned long category) { AppendOnce(logger, static_cast<unsigned int>(category), 0); });
    logger.RemoveDuplicates();
    ASSERT_EQ(Records(logger).size(), 1U);
    EXPECT_EQ(Records(logger)[0].count, 2U);
    std::string output;
    ReportOf(logger, &output);
    EXPECT_EQ(output, "Total Call Stacks Captured: 2\n");
}

TEST(CallStackLogger, EqualStacksOfTwoCategoriesStay) {
    CallStackLogger logger;
    ForEach({5, 6},
            [&](unsigned long category) { AppendOnce(logger, static_cast<unsigned int>(category), 0); });
    logger.RemoveDuplicates();
    EXPECT_EQ(Records(logger).size(), 2U);
}

TEST(CallStackLogger, PrefixOfAnotherStays) {
    CallStackLogger logger;
    AppendMade(logger, 0, {1, 2, 3});
    AppendMade(logger, 0, {1, 2});
    AppendMade(logger, 0, {});
    logger.RemoveDuplicates();
    EXPECT_EQ(Records(logger).size(), 3U);
}

TEST(CallStackLogger, WhatStandsBehindTheFirstZeroDoesNotCount) {
    CallStackLogger logger;
    AppendMade(logger, 0, {1, 2, 0, 3});
    AppendMade(logger, 0, {1, 2, 0, 4});
    logger.RemoveDuplicates();
    EXPECT_EQ(Records(logger).size(), 1U);
}

TEST(CallStackLogger, FoldingTwiceLosesTheCountsOfFoldedRecords) {
    CallStackLogger logger;
    AppendMade(logger, 1, {1});
    for (int i = 0; i != 3; ++i) AppendMade(logger, 2, {1});
    logger.RemoveDuplicates();
    (**std::prev(logger.end())).lockCategory = 1;  // now equal to the first, with a count of three
    logger.RemoveDuplicates();
    ASSERT_EQ(Records(logger).size(), 1U);
    EXPECT_EQ(Records(logger)[0].count, 2U);
}

/// The rule implemented literally: each record compared with each later one.
std::vector<CallStackRec> FoldPairwise(std::vector<CallStackRec> records) {
    for (std::size_t a = 0; a < records.size(); ++a) {
        for (std::size_t b = a + 1; b < records.size();) {
            std::size_t i = 0;
            const auto& left = records[a].addresses;
            const auto& right = records[b].addresses;
            while (i != 32 && left[i] == right[i] && left[i] != 0) ++i;
            const bool isEqual = i == 32 || (left[i] == 0 && right[i] == 0);
            if (isEqual && records[a].lockCategory == records[b].lockCategory) {
                ++records[a].count;
                records.erase(records.begin() + static_cast<std::ptrdiff_t>(b));
            } else {
                ++b;
            }
        }
    }
    return records;
}

TEST(CallStackLogger, FoldsAsTheComparisonOfAllPairsDoes) {
    std::mt19937 random(5);
    for (int round = 0; round != 20; ++round) {
        CallStackLogger logger;
        for (int i = 0; i != 100; ++i) {
            std::vector<std::uint64_t> addresses(random() % 3 == 0 ? 32 : random() % 4);
            for (std::uint64_t& address : addresses) address = random() % 16 == 0 ? 0 : random() % 2 + 1;
            if (addresses.size() == 32) std::fill(addresses.begin(), addresses.begin() + 30, 1);
            AppendMade(logger, random() % 2, addresses);
        }
        const std::vector<CallStackRec> expected = FoldPairwise(Records(logger));
        logger.RemoveDuplicates();
        const std::vector<CallStackRec> records = Records(logger);
        ASSERT_EQ(records.size(), expected.size());
        for (std::size_t i = 0; i != records.size(); ++i) {
            EXPECT_EQ(records[i].count, expected[i].count);
            EXPECT_TRUE(std::equal(records[i].addresses, records[i].addresses + 32, expected[i].addresses));
        }
    }
}

TEST(CallStackLogger, FileThatCannotBeOpenedSilencesTheReport) {
    CallStackLogger logger;
    AppendOnce(logger, 0, 0);
    testing::internal::CaptureStdout();
    logger.FprintfCallStack("/no/such/directory/report");
    logger.FprintfCallStack(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST(CallStackLogger, ReportReplacesAnOldFile) {
    const TemporaryFile file;
    std::FILE* old = std::fopen(file.Path(), "w");
    std::fputs("old", old);
    std::fclose(old);
    CallStackLogger logger;
    testing::internal::CaptureStdout();
    logger.FprintfCallStack(file.Path());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(file.Text(), "");
}

TEST(CallStackLogger, ThreadsAppendAndFoldAtOnce) {
    CallStackLogger logger;
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i != 4; ++i) {
        threads.emplace_back([&logger, i] {
            for (int round = 0; round != 200; ++round) {
                AppendOnce(logger, i, 0);
                if (round % 50 == 0) logger.RemoveDuplicates();
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_GE(Records(logger).size(), 4U);
    EXPECT_LE(Records(logger).size(), 800U);
}

}  // namespace
