#include <Base/ZBase.h>
#include <Base/frame/detail/TextBlock.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <vector>

#include "tests/support/Allocations.h"

// Tests that hold for all three result strings run on all three.

namespace {

template <class R>
using CharacterOf = std::remove_const_t<std::remove_pointer_t<decltype(std::declval<R>().c_str())>>;

template <class R>
class ReturnStringOfAnyKind : public testing::Test {
protected:
    using Ch = CharacterOf<R>;
    using Text = std::vector<Ch>;

    static Text Terminated(const char* text) {
        Text units;
        do units.push_back(static_cast<Ch>(static_cast<unsigned char>(*text)));
        while (*text++ != 0);
        return units;
    }

    // The first `count` units of the block, terminators among them.
    static Text Block(const R& string, std::size_t count) {
        return Text(string.c_str(), string.c_str() + count);
    }
};

using ResultStrings = testing::Types<ZBase::ReturnString, ZBase::ReturnWString, ZBase::ReturnUString>;
TYPED_TEST_SUITE(ReturnStringOfAnyKind, ResultStrings);

TYPED_TEST(ReturnStringOfAnyKind, IsOnePointer) {
    EXPECT_EQ(sizeof(TypeParam), sizeof(void*));
    EXPECT_FALSE(std::is_polymorphic_v<TypeParam>);
    EXPECT_FALSE(std::is_copy_assignable_v<TypeParam>);
}

TYPED_TEST(ReturnStringOfAnyKind, OfNullIsNullWithLengthZero) {
    const TypeParam string(nullptr);
    EXPECT_EQ(string.c_str(), nullptr);
    EXPECT_EQ(string.GetLength(), 0u);
}

TYPED_TEST(ReturnStringOfAnyKind, CopiesTextWithItsTerminator) {
    const auto text = this->Terminated("abc");
    const TypeParam string(text.data());
    EXPECT_NE(string.c_str(), text.data());
    EXPECT_EQ(this->Block(string, 4), text);
    EXPECT_EQ(string.GetLength(), 3u);
}

TYPED_TEST(ReturnStringOfAnyKind, OfEmptyTextIsEmptyAndNotNull) {
    const auto text = this->Terminated("");
    const TypeParam string(text.data());
    ASSERT_NE(string.c_str(), nullptr);
    EXPECT_EQ(string.GetLength(), 0u);
}

TYPED_TEST(ReturnStringOfAnyKind, OfLengthZeroIsEmptyAndNotNull) {
    const TypeParam string(std::size_t{0}, nullptr);
    ASSERT_NE(string.c_str(), nullptr);
    EXPECT_EQ(string.c_str()[0], 0);
}

TYPED_TEST(ReturnStringOfAnyKind, OfLengthZeroDoesNotLookAtTheText) {
    const auto* unreadable = reinterpret_cast<const CharacterOf<TypeParam>*>(std::uintptr_t{16});
    const TypeParam string(std::size_t{0}, unreadable);
    EXPECT_EQ(string.GetLength(), 0u);
}

TYPED_TEST(ReturnStringOfAnyKind, OfLengthWithoutTextIsAllZero) {
    const TypeParam string(std::size_t{5}, nullptr);
    EXPECT_EQ(this->Block(string, 6), std::vector<CharacterOf<TypeParam>>(6, 0));
}

TYPED_TEST(ReturnStringOfAnyKind, LongerThanItsTextIsPaddedWithZeros) {
    const auto text = this->Terminated("ab");
    const TypeParam string(std::size_t{5}, text.data());
    EXPECT_EQ(string.GetLength(), 2u);
    EXPECT_EQ(this->Block(string, 6), (std::vector<CharacterOf<TypeParam>>{'a', 'b', 0, 0, 0, 0}));
}

TYPED_TEST(ReturnStringOfAnyKind, ShorterThanItsTextIsCutAndTerminated) {
    const auto text = this->Terminated("abcdef");
    const TypeParam string(std::size_t{3}, text.data());
    EXPECT_EQ(this->Block(string, 4), (std::vector<CharacterOf<TypeParam>>{'a', 'b', 'c', 0}));
}

TYPED_TEST(ReturnStringOfAnyKind, OfUnterminatedTextReadsNoMoreThanItsLength) {
    const std::vector<CharacterOf<TypeParam>> text{'a', 'b', 'c'};  // a sanitizer reports a fourth read
    const TypeParam string(std::size_t{3}, text.data());
    EXPECT_EQ(string.GetLength(), 3u);
}

TYPED_TEST(ReturnStringOfAnyKind, CopyTransfersAndLeavesTheSourceNull) {
    const auto text = this->Terminated("abc");
    const TypeParam a(text.data());
    const auto* block = a.c_str();
    const std::size_t allocations = test::AllocationCount();
    const TypeParam b(a);
    EXPECT_EQ(test::AllocationCount(), allocations);
    EXPECT_EQ(a.c_str(), nullptr);
    EXPECT_EQ(a.GetLength(), 0u);
    EXPECT_EQ(b.c_str(), block);
    EXPECT_EQ(b.GetLength(), 3u);
}

TYPED_TEST(ReturnStringOfAnyKind, TransferredFromFreesNothing) {
    const auto text = this->Terminated("abc");
    const std::size_t before = test::LiveBlocks();
    {
        TypeParam* a = new TypeParam(text.data());
        const TypeParam b(*a);
        delete a;
        EXPECT_EQ(b.GetLength(), 3u);
        EXPECT_EQ(test::LiveBlocks(), before + 1);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TYPED_TEST(ReturnStringOfAnyKind, BlockIsAnEmptyTextWhenItIsFreed) {
    const auto text = this->Terminated("abc");
    TypeParam* string = new TypeParam(text.data());
    const test::FreedBlock block(string->c_str(), 2 * sizeof(CharacterOf<TypeParam>));
    delete string;
    ASSERT_TRUE(block.IsFreed());
    CharacterOf<TypeParam> units[2];
    std::memcpy(units, block.Octets(), sizeof units);
    EXPECT_EQ(units[0], 0);
    EXPECT_EQ(units[1], 'b');
}

TYPED_TEST(ReturnStringOfAnyKind, SwapWithNullHandsTheBlockOut) {
    const auto text = this->Terminated("abc");
    TypeParam string(text.data());
    const auto* block = string.c_str();
    CharacterOf<TypeParam>* taken = nullptr;
    string.Swap(taken);
    EXPECT_EQ(string.c_str(), nullptr);
    EXPECT_EQ(taken, block);
    string.Swap(taken);
    EXPECT_EQ(string.c_str(), block);
    EXPECT_EQ(taken, nullptr);
}

TYPED_TEST(ReturnStringOfAnyKind, ThrowsAndLeaksNothingWithoutMemory) {
    const auto text = this->Terminated("abc");
    const std::size_t before = test::LiveBlocks();
    const auto failures = test::ForEachFailingAllocation([&] {
        try {
            const TypeParam whole(text.data());
            const TypeParam cut(std::size_t{2}, text.data());
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(failures, 2u);
    EXPECT_EQ(test::LiveBlocks(), before);
}

TYPED_TEST(ReturnStringOfAnyKind, BeyondTheLargestSizeIsABadArrayLength) {
    constexpr std::size_t largest = std::numeric_limits<std::size_t>::max();
    constexpr std::size_t unit = sizeof(CharacterOf<TypeParam>);
    EXPECT_THROW(TypeParam(largest, nullptr), std::bad_array_new_length);
    EXPECT_THROW(TypeParam(largest / unit, nullptr), std::bad_array_new_length);
    EXPECT_THROW(TypeParam(largest / unit - 1, nullptr), std::bad_alloc);
}

TEST(ReturnStringOfGibibytes, IsCutWhereTheLowHalfOfTheLengthSays) {
    constexpr std::size_t twoTo31 = std::size_t{1} << 31;
    EXPECT_EQ(ZBase::detail::CutPosition(0), 0u);
    EXPECT_EQ(ZBase::detail::CutPosition(5), 5u);
    EXPECT_EQ(ZBase::detail::CutPosition(twoTo31 - 1), twoTo31 - 1);
    EXPECT_EQ(ZBase::detail::CutPosition(twoTo31), twoTo31);                  // would be negative
    EXPECT_EQ(ZBase::detail::CutPosition(2 * twoTo31 - 1), 2 * twoTo31 - 1);  // the same
    EXPECT_EQ(ZBase::detail::CutPosition(2 * twoTo31), 0u);
    EXPECT_EQ(ZBase::detail::CutPosition(2 * twoTo31 + 3), 3u);
}

}  // namespace
