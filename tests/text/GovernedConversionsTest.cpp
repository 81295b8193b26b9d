#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"

namespace {

using namespace ZBase;
using test::BudgetCalls;

std::vector<unsigned short> Letters(std::size_t count) {
    std::vector<unsigned short> text(count + 1, 'a');
    text.back() = 0;
    return text;
}

class GovernedConversions : public testing::Test {
protected:
    test::RecordingContract contract;
    SmartPtrI<MemoryContract> holder{&contract};
    SmartPtrI<MemoryContract> none;
};

TEST_F(GovernedConversions, OneUnitBelowTheThresholdLeavesTheContractAlone) {
    const auto text = Letters(8191);
    EXPECT_EQ(WideCharToUTF8Governed(text.data(), false, holder).c_str(), std::string(8191, 'a'));
    EXPECT_TRUE(contract.calls->empty());
}

TEST_F(GovernedConversions, RequestAtTheThresholdIsEightBytesAUnitAndTwo) {
    const auto text = Letters(8192);
    EXPECT_EQ(WideCharToUTF8Governed(text.data(), false, holder).c_str(), std::string(8192, 'a'));
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 65538}, {"Settle", 65538}}));
}

TEST_F(GovernedConversions, UnitsThatAreConvertedArePaidFor) {
    auto text = Letters(20000);
    EXPECT_EQ(WideCharToUTF8UsingLengthGoverned(text.data(), 8191, holder, false).GetLength(), 8191u);
    EXPECT_TRUE(contract.calls->empty());
    EXPECT_EQ(WideCharToUTF8UsingLengthGoverned(text.data(), 9000, holder, false).GetLength(), 9000u);
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 72002}, {"Settle", 72002}}));
    contract.calls->clear();
    text[100] = 0;  // a terminator inside the length ends the text
    EXPECT_EQ(WideCharToUTF8UsingLengthGoverned(text.data(), 9000, holder, false).GetLength(), 100u);
    EXPECT_TRUE(contract.calls->empty());
}

TEST_F(GovernedConversions, LengthOfZeroMeansTerminatedText) {
    const auto text = Letters(8192);
    EXPECT_EQ(WideCharToUTF8UsingLengthGoverned(text.data(), 0, holder, false).GetLength(), 8192u);
    EXPECT_EQ(contract.calls->size(), 2u);
}

TEST_F(GovernedConversions, EmptyContractGovernsNothing) {
    const auto text = Letters(100000);
    EXPECT_EQ(WideCharToUTF8Governed(text.data(), false, none).GetLength(), 100000u);
}

TEST_F(GovernedConversions, NullTextIsANullStringAndAsksNobody) {
    EXPECT_EQ(WideCharToUTF8Governed(nullptr, false, holder).c_str(), nullptr);
    EXPECT_EQ(WideCharToUTF8UsingLengthGoverned(nullptr, 100000, holder, true).c_str(), nullptr);
    EXPECT_TRUE(contract.calls->empty());
}

TEST_F(GovernedConversions, NothingIsAllocatedBeforeTheContractIsAsked) {
    const auto text = Letters(8192);
    std::size_t allocations = 0;
    contract.inRequest = [&] { allocations = test::AllocationCount() - allocations; };
    allocations = test::AllocationCount();
    WideCharToUTF8Governed(text.data(), false, holder);
    EXPECT_EQ(allocations, 0u);
}

TEST_F(GovernedConversions, RefusalCarriesItsCode) {
    contract.code = 8;
    const auto text = Letters(8192);
    const std::size_t live = test::LiveBlocks();
    try {
        WideCharToUTF8Governed(text.data(), false, holder);
        FAIL();
    } catch (const ExceptionImpl<ContractManagerAllocException>& failure) {
        EXPECT_EQ(failure.GetDomain(), 0);
        EXPECT_EQ(failure.GetID(), 8);
        EXPECT_EQ(std::string(WideCharToUTF8(failure.GetMessage(), false).c_str()),
                  std::string("No memory to be contracted. Contract request rejected.\n") +
                      WideCharToUTF8(GetSystemErrorDescription(8).c_str(), false).c_str());
    }
    EXPECT_LE(test::LiveBlocks(), live + 1);  // the record of the call
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 65538}}));
}

TEST_F(GovernedConversions, SettlingComesBeforeTheConversion) {
    auto text = Letters(8192);
    text[5] = 0xD800;
    EXPECT_THROW(WideCharToUTF8Governed(text.data(), true, holder), StringConversionException);
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 65538}, {"Settle", 65538}}));
}

TEST_F(GovernedConversions, AllocationThatFailsIsNotSettled) {
    const auto text = Letters(8192);
    contract.calls->reserve(10);
    {
        test::FailingAllocation failing(0);
        EXPECT_THROW(WideCharToUTF8Governed(text.data(), false, holder), std::bad_alloc);
    }
    EXPECT_EQ(*contract.calls, (BudgetCalls{{"Request", 65538}}));
}

TEST_F(GovernedConversions, FlagAndOutputAreThoseOfTheUngovernedForms) {
    const unsigned short text[] = {'a', 0xFFFE, 0xD83D, 0xDE00, 0x20AC, 0};
    EXPECT_STREQ(WideCharToUTF8Governed(text, true, holder).c_str(), WideCharToUTF8(text, true).c_str());
    EXPECT_THROW(WideCharToUTF8Governed(text, false, holder), StringConversionException);
    EXPECT_STREQ(WideCharToUTF8UsingLengthGoverned(text, 4, holder, true).c_str(),
                 "a\xEF\xBF\xBD\xF0\x9F\x98\x80");
}

}  // namespace
