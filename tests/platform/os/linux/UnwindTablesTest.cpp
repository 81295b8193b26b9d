// Tables that a compiler seldom writes, with the numbers of DWARF's table of operations. Values are worked
// out by hand.
#include <Base/platform/os/linux/stacks/unwind/UnwindTables.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace ZBase::os;
using Octets = std::vector<std::uint8_t>;

constexpr std::size_t kFunction = 0x100;  // where the first one begins, from the search table
constexpr std::size_t kSize = 0x40;
constexpr unsigned int kFramePointer = 6;
constexpr unsigned int kStackPointer = 7;
constexpr unsigned int kReturn = 16;

template <class T>
Octets Number(T value) {
    Octets octets(sizeof value);
    std::memcpy(octets.data(), &value, sizeof value);
    return octets;
}

Octets Joined(std::initializer_list<Octets> parts) {
    Octets all;
    for (const Octets& part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

/// What functions share.
struct Common {
    std::uint8_t version = 1;
    std::string augmentation = "zR";
    Octets data = {0x1B};  // pointers are relative, of 32 bits
    std::uint8_t codeAlignment = 1;
    std::uint8_t returnRegister = kReturn;
    Octets program = {0x0C, kStackPointer, 8, 0x80 | kReturn,
                      1};  // the CFA is rsp+8; the address is at CFA-8
};

/// A search table, functions behind it of which nothing is read, and their descriptions.
class Table {
public:
    explicit Table(const Common& common = {}, bool isLong = false) : mIsLong(isLong) {
        Octets content = Joined({Number<std::uint32_t>(0), {common.version}});
        content.insert(content.end(), common.augmentation.begin(), common.augmentation.end());
        content.insert(content.end(), {0, common.codeAlignment, 0x78 /* -8 */, common.returnRegister});
        if (common.augmentation.starts_with('z'))
            content.push_back(static_cast<std::uint8_t>(common.data.size()));
        content.insert(content.end(), common.data.begin(), common.data.end());
        content.insert(content.end(), common.program.begin(), common.program.end());
        mCommon = Put(content);
        mEndOfCommon = mEnd;
    }

    /// A function whose description has its start as a relative number, or as an address.
    void Add(std::size_t start, std::size_t size, const Octets& program, const Octets& data = {}) {
        const std::size_t content = mEnd + (mIsLong ? 12 : 4);
        const auto distance = static_cast<std::uint32_t>(content - mCommon);
        const auto relative = static_cast<std::int32_t>(start) - static_cast<std::int32_t>(content + 4);
        const std::size_t at = Put(Joined({Number(distance),
                                           Number(relative),
                                           Number(static_cast<std::uint32_t>(size)),
                                           {static_cast<std::uint8_t>(data.size())},
                                           data,
                                           program}));
        AddEntry(start, at);
    }

    void AddAbsolute(std::size_t start, std::size_t size, const Octets& program, const Octets& lengthOfData) {
        const std::size_t content = mEnd + (mIsLong ? 12 : 4);
        const auto distance = static_cast<std::uint32_t>(content - mCommon);
        const std::size_t at = Put(Joined(
            {Number(distance), Number(Address(start)), Number(std::uint64_t{size}), lengthOfData, program}));
        AddEntry(start, at);
    }

    std::uint64_t Address(std::size_t offset) const {
        return reinterpret_cast<std::uint64_t>(mOctets.data()) + offset;
    }

    std::uint8_t& LastOfCommon() { return mOctets[mEndOfCommon - 1]; }
    std::uint8_t& Last() { return mOctets[mEnd - 1]; }

    void SetForm(std::uint32_t form) { std::memcpy(mOctets.data(), &form, sizeof form); }

    UnwindModule Module() const { return {Address(0), Address(mOctets.size()), mOctets.data(), 1}; }

    std::optional<FrameRules> At(std::size_t offset) const {
        FrameRules rules;
        return FindFrameRules(Module(), Address(offset), rules) ? std::optional(rules) : std::nullopt;
    }

    std::uint64_t Hash(std::size_t offset, std::uint32_t& index) const {
        return FindDescriptionHash(Module(), Address(offset), index);
    }

private:
    std::size_t Put(const Octets& content) {
        const std::size_t at = mEnd;
        const Octets length = mIsLong ? Joined({Number(0xFFFFFFFFu), Number(std::uint64_t{content.size()})})
                                      : Number(static_cast<std::uint32_t>(content.size()));
        const Octets all = Joined({length, content});
        std::memcpy(mOctets.data() + at, all.data(), all.size());
        mEnd += all.size();
        return at;
    }

    // In the order of the functions.
    void AddEntry(std::size_t function, std::size_t description) {
        const std::int32_t entry[] = {static_cast<std::int32_t>(function),
                                      static_cast<std::int32_t>(description)};
        std::memcpy(mOctets.data() + 12 + 8 * mCount, entry, sizeof entry);
        ++mCount;
        const std::uint32_t header[] = {0x3B031B01, 0, mCount};
        std::memcpy(mOctets.data(), header, sizeof header);
    }

    bool mIsLong;
    Octets mOctets = Octets(0x1000);
    std::size_t mEnd = 0x400;
    std::size_t mCommon = 0;
    std::size_t mEndOfCommon = 0;
    std::uint32_t mCount = 0;
};

/// The rules at a place in one function with this program; none if they are refused.
std::optional<FrameRules> Rules(const Octets& program, std::size_t at = 0, const Common& common = {}) {
    Table table(common);
    table.Add(kFunction, kSize, program);
    return table.At(kFunction + at);
}

void ExpectRule(const std::optional<FrameRules>& rules, unsigned int number, RuleKind kind,
                std::int64_t value) {
    ASSERT_TRUE(rules.has_value());
    EXPECT_EQ(rules->kinds[number], kind) << number;
    EXPECT_EQ(rules->values[number], value) << number;
}

TEST(UnwindTables, WhatFunctionsShareHoldsFromTheStart) {
    Table table;
    table.Add(kFunction, kSize, {});
    const auto rules = table.At(kFunction + kSize - 1);
    ExpectRule(rules, kReturn, RuleKind::Stored, -8);
    ExpectRule(rules, kFramePointer, RuleKind::Same, 0);
    EXPECT_EQ(rules->cfaRegister, kStackPointer);
    EXPECT_EQ(rules->cfaOffset, 8);
    EXPECT_FALSE(rules->cfaIsExpression);
    EXPECT_FALSE(rules->isSignalFrame);
    EXPECT_EQ(rules->functionStart, table.Address(kFunction));
    EXPECT_EQ(rules->functionEnd, table.Address(kFunction + kSize));
}

TEST(UnwindTables, EachFormOfAnAdvanceEndsWhereItsRulesBegin) {
    Common common;
    common.data = {0x00};  // pointers are addresses
    Table table(common);
    const Octets place = Number(table.Address(kFunction + 0x38));
    table.AddAbsolute(kFunction, kSize,
                      Joined({{0x41, 0x0E, 16},                 // DW_CFA_advance_loc 1
                              {0x02, 0x0F, 0x0E, 24},           // DW_CFA_advance_loc1 15
                              {0x03, 0x10, 0, 0x0E, 32},        // DW_CFA_advance_loc2 16
                              {0x04, 0x10, 0, 0, 0, 0x0E, 40},  // DW_CFA_advance_loc4 16
                              {0x01},
                              place,
                              {0x0E, 48}}),  // DW_CFA_set_loc
                      {0});
    const struct {
        std::size_t at;
        std::int64_t offset;
    } rows[] = {{0, 8},     {1, 16},    {0xF, 16},  {0x10, 24}, {0x1F, 24}, {0x20, 32},
                {0x2F, 32}, {0x30, 40}, {0x37, 40}, {0x38, 48}, {0x3F, 48}};
    for (const auto& row : rows) {
        const auto rules = table.At(kFunction + row.at);
        ASSERT_TRUE(rules.has_value()) << row.at;
        EXPECT_EQ(rules->cfaOffset, row.offset) << row.at;
    }
}

TEST(UnwindTables, AdvancesAreMultiplesOfTheAlignmentOfCode) {
    Common common;
    common.codeAlignment = 4;
    EXPECT_EQ(Rules({0x42, 0x0E, 16}, 7, common)->cfaOffset, 8);
    EXPECT_EQ(Rules({0x42, 0x0E, 16}, 8, common)->cfaOffset, 16);
}

TEST(UnwindTables, RegistersAreStoredAtMultiplesOfTheAlignmentOfData) {
    ExpectRule(Rules({0x83, 2}), 3, RuleKind::Stored, -16);                // DW_CFA_offset
    ExpectRule(Rules({0x05, 6, 0x82, 0x01}), 6, RuleKind::Stored, -1040);  // DW_CFA_offset_extended 130
    ExpectRule(Rules({0x11, 3, 0x7E}), 3, RuleKind::Stored, 16);           // DW_CFA_offset_extended_sf -2
    ExpectRule(Rules({0x2F, 12, 2}), 12, RuleKind::Stored, 16);     // DW_CFA_GNU_negative_offset_extended
    ExpectRule(Rules({0x14, 13, 3}), 13, RuleKind::Offset, -24);    // DW_CFA_val_offset
    ExpectRule(Rules({0x15, 14, 0x7D}), 14, RuleKind::Offset, 24);  // DW_CFA_val_offset_sf -3
}

TEST(UnwindTables, RegistersAreLostKeptOrInAnother) {
    ExpectRule(Rules({0x07, kReturn}), kReturn, RuleKind::Undefined, 0);
    ExpectRule(Rules({0x08, kReturn}), kReturn, RuleKind::Same, 0);
    ExpectRule(Rules({0x09, 3, 12}), 3, RuleKind::Register, 12);
}

TEST(UnwindTables, ExpressionsAreBehindTheirLength) {
    const auto stored = Rules({0x10, 3, 2, 0x77, 0x08, 0x0E, 16});  // DW_CFA_expression: DW_OP_breg7 8
    const auto computed = Rules({0x16, 3, 2, 0x77, 0x08, 0x0E, 16});
    const auto frame = Rules({0x0F, 2, 0x76, 0x10, 0x83, 2});
    ASSERT_TRUE(stored && computed && frame);
    EXPECT_EQ(stored->kinds[3], RuleKind::StoredAt);
    EXPECT_EQ(computed->kinds[3], RuleKind::Computed);
    EXPECT_EQ(stored->cfaOffset, 16);
    EXPECT_EQ(computed->cfaOffset, 16);
    EXPECT_TRUE(frame->cfaIsExpression);
    EXPECT_EQ(frame->kinds[3], RuleKind::Stored);
    EXPECT_FALSE(Rules({0x0F, 2, 0x76, 0x10, 0x0C, kStackPointer, 24})->cfaIsExpression);
}

TEST(UnwindTables, PlaceOfAnExpressionIsThatOfItsLength) {
    Table table;
    table.Add(kFunction, kSize, {0x0F, 2, 0x76, 0x10});
    const auto place = reinterpret_cast<const std::uint8_t*>(table.At(kFunction)->cfaOffset);
    EXPECT_EQ(Octets(place, place + 3), (Octets{2, 0x76, 0x10}));
}

TEST(UnwindTables, FrameIsDefinedByRegisterAndOffsetTogetherOrAlone) {
    const auto both = Rules({0x12, kFramePointer, 0x7E});  // DW_CFA_def_cfa_sf -2
    EXPECT_EQ(both->cfaRegister, kFramePointer);
    EXPECT_EQ(both->cfaOffset, 16);
    const auto offset = Rules({0x13, 0x7D});  // DW_CFA_def_cfa_offset_sf -3
    EXPECT_EQ(offset->cfaRegister, kStackPointer);
    EXPECT_EQ(offset->cfaOffset, 24);
    const auto number = Rules({0x0D, kFramePointer});  // DW_CFA_def_cfa_register
    EXPECT_EQ(number->cfaRegister, kFramePointer);
    EXPECT_EQ(number->cfaOffset, 8);
}

TEST(UnwindTables, RestoredIsTheRuleThatFunctionsShare) {
    ExpectRule(Rules({0x07, kReturn, 0xC0 | kReturn}), kReturn, RuleKind::Stored, -8);
    ExpectRule(Rules({0x07, kReturn, 0x06, kReturn}), kReturn, RuleKind::Stored, -8);
    ExpectRule(Rules({0x83, 2, 0xC3}), 3, RuleKind::Same, 0);
    Common common;
    common.program = {0x0C, kStackPointer, 8, 0x07, 3, 0xC3};  // restored where nothing is shared yet
    ExpectRule(Rules({}, 0, common), 3, RuleKind::Same, 0);
}

TEST(UnwindTables, RowsAreRememberedFourDeep) {
    const Octets four = {0x0A, 0x0E, 16, 0x0A, 0x0E, 24, 0x0A, 0x0E, 32, 0x0A, 0x0E, 40};
    EXPECT_EQ(Rules(four)->cfaOffset, 40);
    EXPECT_EQ(Rules(Joined({four, {0x0B}}))->cfaOffset, 32);
    EXPECT_EQ(Rules(Joined({four, {0x0B, 0x0B, 0x0B, 0x0B}}))->cfaOffset, 8);
    EXPECT_EQ(Rules(Joined({four, {0x0A}})), std::nullopt);
    EXPECT_EQ(Rules({0x0B}), std::nullopt);
}

TEST(UnwindTables, WhatIsOfNoUseHereIsPassedOver) {
    EXPECT_EQ(Rules({0x2E, 0x90, 0x01, 0x00, 0x0E, 16})->cfaOffset,
              16);  // DW_CFA_GNU_args_size 144, DW_CFA_nop
    EXPECT_EQ(Rules({0x05, 40, 2, 0x06, 40, 0xBF, 1, 0xFF, 0x0E, 16})->cfaOffset, 16);  // vector registers
}

TEST(UnwindTables, UnknownOperationIsRefusedOnlyWhereItIsReached) {
    const Octets program = {0x48, 0x1C, 3};
    EXPECT_TRUE(Rules(program, 7).has_value());
    EXPECT_EQ(Rules(program, 8), std::nullopt);
}

TEST(UnwindTables, PartsAboutExceptionsArePassedOver) {
    Common common;
    common.augmentation = "zPLR";
    common.data = {0x9B, 1, 2, 3, 4, 0x1B, 0x1B};  // an indirect pointer to the function that handles them
    Table table(common);
    table.Add(kFunction, kSize, {0x0E, 16}, {5, 6, 7, 8});
    EXPECT_EQ(table.At(kFunction)->cfaOffset, 16);
}

TEST(UnwindTables, FrameOfASignalIsMarked) {
    Common common;
    common.augmentation = "zRS";
    EXPECT_TRUE(Rules({}, 0, common)->isSignalFrame);
}

TEST(UnwindTables, WithoutAnAugmentationPointersAreAddresses) {
    Common common;
    common.augmentation = "";
    common.data = {};
    Table table(common);
    table.AddAbsolute(kFunction, kSize, {0x0E, 16}, {});
    EXPECT_EQ(table.At(kFunction)->cfaOffset, 16);
}

TEST(UnwindTables, UnknownAugmentationIsRefusedUnlessItsSizeIsKnown) {
    Common common;
    common.augmentation = "eh";
    EXPECT_EQ(Rules({}, 0, common), std::nullopt);
    common.augmentation = "zRX";
    common.data = {0x1B, 1, 2, 3};
    EXPECT_TRUE(Rules({}, 0, common).has_value());
    common.augmentation = "zPR";
    common.data = {0x5B, 1, 2, 3, 4, 0x1B};  // aligned
    EXPECT_EQ(Rules({}, 0, common), std::nullopt);
    common.augmentation = "zR";
    common.data = {0x3B};  // relative to data
    EXPECT_EQ(Rules({}, 0, common), std::nullopt);
}

TEST(UnwindTables, VersionsOneAndThreeAreKnown) {
    Common common;
    common.version = 3;
    EXPECT_TRUE(Rules({}, 0, common).has_value());
    common.version = 4;
    EXPECT_EQ(Rules({}, 0, common), std::nullopt);
}

TEST(UnwindTables, ReturnAddressInAnotherRegisterIsRefused) {
    Common common;
    common.returnRegister = 3;
    EXPECT_EQ(Rules({}, 0, common), std::nullopt);
}

TEST(UnwindTables, LengthsMayHave64Bits) {
    Table table({}, true);
    table.Add(kFunction, kSize, {0x0E, 16});
    EXPECT_EQ(table.At(kFunction)->cfaOffset, 16);
    std::uint32_t index = kNoIndex;
    EXPECT_EQ(table.Hash(kFunction, index), 0u);  // such a one is not remembered
}

TEST(UnwindTables, AddressOutsideOfEveryFunctionHasNoRules) {
    Table table;
    table.Add(kFunction, kSize, {});
    table.Add(kFunction + 2 * kSize, kSize, {0x0E, 16});
    EXPECT_EQ(table.At(kFunction - 1), std::nullopt);
    EXPECT_TRUE(table.At(kFunction).has_value());
    EXPECT_EQ(table.At(kFunction + kSize), std::nullopt);
    EXPECT_EQ(table.At(kFunction + 2 * kSize)->cfaOffset, 16);
    EXPECT_EQ(table.At(kFunction + 3 * kSize), std::nullopt);
    EXPECT_EQ(Table().At(kFunction), std::nullopt);
}

TEST(UnwindTables, SearchTableOfAnotherFormIsRefused) {
    Table table;
    table.Add(kFunction, kSize, {});
    table.SetForm(0x3B03FF01);  // no pointer to the frames
    std::uint32_t index = kNoIndex;
    EXPECT_EQ(table.At(kFunction), std::nullopt);
    EXPECT_EQ(table.Hash(kFunction, index), 0u);
}

TEST(UnwindTables, DescriptionIsFoundByItsIndexAgainAndByNoOther) {
    Table table;
    table.Add(kFunction, kSize, {});
    table.Add(kFunction + kSize, kSize, {0x0E, 16});
    table.Add(kFunction + 2 * kSize, kSize, {0x0E, 24});
    std::uint32_t index = kNoIndex;
    const std::uint64_t hash = table.Hash(kFunction + kSize + 5, index);
    EXPECT_EQ(index, 1u);
    EXPECT_NE(hash, 0u);
    EXPECT_EQ(table.Hash(kFunction + kSize, index), hash);
    for (std::uint32_t other : {0u, 2u, 3u}) EXPECT_EQ(table.Hash(kFunction + kSize, other), 0u) << other;
    index = kNoIndex;
    EXPECT_EQ(table.Hash(kFunction - 1, index), 0u);
}

TEST(UnwindTables, DescriptionsDifferByTheirProgramAndByThatOfWhatTheyShare) {
    Table table;
    table.Add(kFunction, kSize, {0x0E, 16});
    std::uint32_t index = kNoIndex;
    const std::uint64_t hash = table.Hash(kFunction, index);
    for (std::uint8_t* const octet : {&table.LastOfCommon(), &table.Last()}) {
        *octet += 1;
        EXPECT_NE(table.Hash(kFunction, index), hash);
        *octet -= 1;
        EXPECT_EQ(table.Hash(kFunction, index), hash);
    }
}

}  // namespace
