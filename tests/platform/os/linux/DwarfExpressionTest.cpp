// Expressions that a compiler seldom writes, with the numbers of DWARF's table of operations. Values are
// worked out by hand.
#include <Base/platform/os/linux/stacks/Registers.h>
#include <Base/platform/os/linux/stacks/unwind/DwarfExpression.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace {

using namespace ZBase::os;
using Octets = std::vector<std::uint8_t>;

constexpr std::uint64_t kAddress = 0x1000;  // the one word that can be read
constexpr std::uint64_t kWord = 0xFEDCBA9876543210;

bool Load(void*, std::uint64_t address, std::uint64_t& value) {
    value = kWord;
    return address == kAddress;
}

/// The value with these on the stack before it, the last on top; none if it is refused.
std::optional<std::uint64_t> Value(const Octets& operations, const std::vector<std::uint64_t>& before = {}) {
    Octets all;
    for (const std::uint64_t value : before) {
        all.push_back(0x0E);  // DW_OP_const8u
        for (int shift = 0; shift != 64; shift += 8) all.push_back(static_cast<std::uint8_t>(value >> shift));
    }
    all.insert(all.end(), operations.begin(), operations.end());
    std::uint64_t registers[kRegisters];
    for (unsigned int i = 0; i != kRegisters; ++i) registers[i] = 100 * i;
    std::uint64_t result = 0;
    const bool isGood = Evaluate({all.data(), all.data() + all.size()}, registers, nullptr,
                                 WordReader{Load, nullptr}, result);
    return isGood ? std::optional(result) : std::nullopt;
}

constexpr std::uint64_t kMinusFive = static_cast<std::uint64_t>(-5);

TEST(DwarfExpression, ConstantsOfEachSizeKeepTheirSign) {
    EXPECT_EQ(Value({0x30}), 0u);
    EXPECT_EQ(Value({0x4F}), 31u);
    EXPECT_EQ(Value({0x08, 0xFB}), 251u);
    EXPECT_EQ(Value({0x09, 0xFB}), kMinusFive);
    EXPECT_EQ(Value({0x0A, 0xFB, 0xFF}), 65531u);
    EXPECT_EQ(Value({0x0B, 0xFB, 0xFF}), kMinusFive);
    EXPECT_EQ(Value({0x0C, 0xFB, 0xFF, 0xFF, 0xFF}), 4294967291u);
    EXPECT_EQ(Value({0x0D, 0xFB, 0xFF, 0xFF, 0xFF}), kMinusFive);
    EXPECT_EQ(Value({0x0F, 0xFB, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}), kMinusFive);
    EXPECT_EQ(Value({0x10, 0xE5, 0x8E, 0x26}), 624485u);
    EXPECT_EQ(Value({0x11, 0x7B}), kMinusFive);
    EXPECT_EQ(Value({0x11, 0xFB, 0x00}), 123u);
}

TEST(DwarfExpression, RegistersAreReadWithAnOffset) {
    EXPECT_EQ(Value({0x70, 0x05}), 5u);
    EXPECT_EQ(Value({0x77, 0x7B}), 695u);
    EXPECT_EQ(Value({0x70 + kRegisters - 1, 0x00}), 100 * (kRegisters - 1));
    EXPECT_EQ(Value({0x70 + kRegisters, 0x00}), std::nullopt);
}

TEST(DwarfExpression, StackIsArranged) {
    EXPECT_EQ(Value({0x12, 0x22}, {7}), 14u);       // dup, plus
    EXPECT_EQ(Value({0x13}, {7, 8}), 7u);           // drop
    EXPECT_EQ(Value({0x14}, {7, 8}), 7u);           // over
    EXPECT_EQ(Value({0x15, 0x02}, {7, 8, 9}), 7u);  // pick
    EXPECT_EQ(Value({0x16, 0x1C}, {7, 10}), 3u);    // swap, minus
    EXPECT_EQ(Value({0x96}, {7}), 7u);              // nop
    EXPECT_EQ(Value({0x06}, {kAddress}), kWord);    // deref
    EXPECT_EQ(Value({0x06}, {kAddress + 1}), std::nullopt);
}

TEST(DwarfExpression, OperationsOfOneValue) {
    EXPECT_EQ(Value({0x19}, {kMinusFive}), 5u);  // abs
    EXPECT_EQ(Value({0x19}, {5}), 5u);
    EXPECT_EQ(Value({0x1F}, {5}), kMinusFive);        // neg
    EXPECT_EQ(Value({0x20}, {4}), kMinusFive);        // not
    EXPECT_EQ(Value({0x23, 0x80, 0x01}, {5}), 133u);  // plus_uconst
}

TEST(DwarfExpression, OperationsOfTwoValues) {
    EXPECT_EQ(Value({0x1A}, {12, 10}), 8u);         // and
    EXPECT_EQ(Value({0x1C}, {5, 10}), kMinusFive);  // minus
    EXPECT_EQ(Value({0x1E}, {kMinusFive, 3}), kMinusFive * 3);
    EXPECT_EQ(Value({0x21}, {12, 10}), 14u);         // or
    EXPECT_EQ(Value({0x22}, {kMinusFive, 10}), 5u);  // plus
    EXPECT_EQ(Value({0x24}, {3, 4}), 48u);           // shl
    EXPECT_EQ(Value({0x24}, {3, 64}), 0u);
    EXPECT_EQ(Value({0x25}, {kMinusFive, 60}), 15u);  // shr
    EXPECT_EQ(Value({0x25}, {kMinusFive, 64}), 0u);
    EXPECT_EQ(Value({0x26}, {kMinusFive, 1}), static_cast<std::uint64_t>(-3));  // shra
    EXPECT_EQ(Value({0x26}, {kMinusFive, 200}), static_cast<std::uint64_t>(-1));
    EXPECT_EQ(Value({0x27}, {12, 10}), 6u);  // xor
}

// Of signed values.
TEST(DwarfExpression, ComparisonsGiveOneOrZero) {
    const struct {
        std::uint8_t operation;
        std::uint64_t smaller, same, larger;
    } rows[] = {{0x29, 0, 1, 0}, {0x2A, 0, 1, 1}, {0x2B, 0, 0, 1},
                {0x2C, 1, 1, 0}, {0x2D, 1, 0, 0}, {0x2E, 1, 0, 1}};
    for (const auto& row : rows) {
        EXPECT_EQ(Value({row.operation}, {kMinusFive, 3}), row.smaller) << int{row.operation};
        EXPECT_EQ(Value({row.operation}, {3, 3}), row.same) << int{row.operation};
        EXPECT_EQ(Value({row.operation}, {3, kMinusFive}), row.larger) << int{row.operation};
    }
}

TEST(DwarfExpression, BranchIsTakenUnlessTheTopIsZero) {
    const Octets branch = {0x28, 0x01, 0x00, 0x31, 0x32};  // bra over lit1, lit2
    EXPECT_EQ(Value(branch, {9, 0}), 2u);
    EXPECT_EQ(Value({0x28, 0x01, 0x00, 0x31}, {9, 0}), 1u);
    EXPECT_EQ(Value({0x28, 0x01, 0x00, 0x31}, {9, 1}), 9u);
    EXPECT_EQ(Value({0x2F, 0x01, 0x00, 0x31}, {9}), 9u);  // skip
}

TEST(DwarfExpression, WhatHasNoValueIsRefused) {
    EXPECT_EQ(Value({}), std::nullopt);
    EXPECT_EQ(Value({0x13}), std::nullopt);       // drop of nothing
    EXPECT_EQ(Value({0x14}, {7}), std::nullopt);  // over one
    EXPECT_EQ(Value({0x15, 0x03}, {7, 8, 9}), std::nullopt);
    EXPECT_EQ(Value({0x1B}, {7, 8}), std::nullopt);           // div
    EXPECT_EQ(Value({0x03}), std::nullopt);                   // addr
    EXPECT_EQ(Value({0x2F, 0xFD, 0xFF}, {9}), std::nullopt);  // skips to itself for ever
}

TEST(DwarfExpression, StackHolds32Values) {
    EXPECT_EQ(Value(Octets(32, 0x31)), 1u);
    EXPECT_EQ(Value(Octets(33, 0x31)), std::nullopt);
}

TEST(DwarfExpression, FirstValueIsOnTheStackOfOneInTheTables) {
    const std::uint8_t table[] = {2, 0x35, 0x22, 0xFF};  // its length; lit5, plus
    const Expression expression =
        ExpressionAt(static_cast<std::int64_t>(reinterpret_cast<std::uintptr_t>(table)));
    EXPECT_EQ(expression.start, table + 1);
    EXPECT_EQ(expression.end, table + 3);
    const std::uint64_t first = 40;
    std::uint64_t result = 0;
    EXPECT_TRUE(Evaluate(expression, nullptr, &first, WordReader{Load, nullptr}, result));
    EXPECT_EQ(result, 45u);
}

TEST(DwarfExpression, PointersInTheTablesHaveEachEncoding) {
    const std::uint8_t octets[] = {0xFE, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F};
    const auto place = reinterpret_cast<std::uint64_t>(octets);
    const struct {
        std::uint8_t encoding;
        std::uint64_t value;
    } rows[] = {{0x00, 0x7FFFFFFFFFFFFFFE}, {0x02, 0xFFFE},
                {0x03, 0xFFFFFFFE},         {0x04, 0x7FFFFFFFFFFFFFFE},
                {0x0A, ~std::uint64_t{1}},  {0x0B, ~std::uint64_t{1}},
                {0x0C, 0x7FFFFFFFFFFFFFFE}, {0x1B, place - 2},
                {0x12, place + 0xFFFE}};
    for (const auto& row : rows) {
        DwarfReader reader(octets, octets + sizeof octets);
        std::uint64_t value = 0;
        EXPECT_TRUE(reader.Pointer(row.encoding, value)) << int{row.encoding};
        EXPECT_EQ(value, row.value) << int{row.encoding};
    }
    for (const int encoding : {0x01, 0x09, 0x2B, 0x3B}) {
        DwarfReader reader(octets, octets + sizeof octets);
        std::uint64_t value = 0;
        EXPECT_FALSE(reader.Pointer(static_cast<std::uint8_t>(encoding), value)) << encoding;
    }
}

}  // namespace
