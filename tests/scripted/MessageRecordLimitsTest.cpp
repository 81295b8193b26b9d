#include <Base/messages/detail/Records.h>

#include <gtest/gtest.h>

#include <limits>
#include <new>

using namespace ZBase::detail;

// Records up to the largest size. The blocks are never written to beyond their heads, so that they cost no
// memory.

namespace {

constexpr std::size_t kLargestPayload = 0xFFFFFFFF - 16 - 5;

struct SmallestBlock : Block {
    SmallestBlock() { InitializeBlock(*this, sizeof(Block)); }
    ~SmallestBlock() { FreeBlockChain(*this); }
    SmallestBlock(const SmallestBlock&) = delete;
    SmallestBlock& operator=(const SmallestBlock&) = delete;
};

// A block in which a record of almost 4 GiB lies, unwritten.
bool PlaceHuge(Block& block, std::size_t payloadSize, ETag tag) {
    return PlaceRecord(block, payloadSize, tag, false) != nullptr;
}

}  // namespace

TEST(RecordLimits, LargestRecordFillsABlockOfTheLargestCapacity) {
    SmallestBlock block;
    Record* record = PlaceRecord(block, kLargestPayload, TAG_TEMPLATE, false);
    ASSERT_NE(record, nullptr);
    const Block* added = block.next;
    EXPECT_EQ(added->capacity, 0xFFFFFFFFu);
    EXPECT_EQ(added->free, 0u);
    EXPECT_EQ(record->length, 0xFFFFFFEFu);
    EXPECT_EQ(record->PayloadSize(), kLargestPayload);
    RecordWalker<Block> walker(block);
    EXPECT_EQ(walker.Next(), record);
    EXPECT_EQ(walker.Next(), nullptr);
}

TEST(RecordLimits, OneByteMoreHasNoPlace) {
    SmallestBlock block;
    for (const std::size_t size :
         {kLargestPayload + 1, kLargestPayload + 5, kLargestPayload + 6, std::size_t{0xFFFFFFFB},
          std::size_t{0xFFFFFFFF}, std::size_t{0x100000000}, std::size_t{0x100000010},
          std::numeric_limits<std::size_t>::max() - 4, std::numeric_limits<std::size_t>::max()}) {
        EXPECT_EQ(PlaceRecord(block, size, TAG_TEMPLATE, false), nullptr) << size;
        EXPECT_EQ(PlaceRecord(block, size, TAG_TEMPLATE, true), nullptr) << size;
    }
    EXPECT_EQ(block.next, nullptr);
}

TEST(RecordLimits, SumOfRecordsPassesThirtyTwoBits) {
    SmallestBlock block;
    ASSERT_TRUE(PlaceHuge(block, 0x7FFFFFFF, TAG_TEMPLATE));
    ASSERT_TRUE(PlaceHuge(block, 0x7FFFFFFF, TAG_TEMPLATE));
    ASSERT_TRUE(PlaceHuge(block, 0x7FFFFFFF, TAG_TEMPLATE));
    EXPECT_EQ(SumRecordLengths(block, kDeleted), 3 * std::uint64_t{0x80000004});
}

TEST(RecordLimits, ImageOfMoreThanARecordCanHoldIsNotNested) {
    SmallestBlock source;
    SmallestBlock parent;
    ASSERT_TRUE(PlaceHuge(source, 0x7FFFFFFF, TAG_TEMPLATE));
    ASSERT_TRUE(PlaceHuge(source, 0x80000000, TAG_TEMPLATE));
    EXPECT_EQ(NestCopy(source, parent, TAG_LOWER_LEVEL), nullptr);
    EXPECT_EQ(parent.next, nullptr);
}

TEST(RecordLimits, PayloadOfWideTextOfAnyLengthIsReckonedIn64Bits) {
    EXPECT_EQ(WideTextPayloadSize(0), 4u);
    EXPECT_EQ(WideTextPayloadSize(0x7FFFFFFF), 0x100000002u);
    SmallestBlock block;
    EXPECT_EQ(PlaceRecord(block, WideTextPayloadSize(0x7FFFFFF4), TAG_WIDE_MESSAGE, false), nullptr);
    EXPECT_NE(PlaceRecord(block, WideTextPayloadSize(0x7FFFFFF3), TAG_WIDE_MESSAGE, false), nullptr);
}

TEST(TagSet, HoldsWhatItWasGivenAndNothingBeyond) {
    constexpr TagSet tags{TAG_DELETED, TAG_WIDE_MESSAGE};
    for (unsigned int tag = 0; tag != 256; ++tag)
        EXPECT_EQ(tags.Contains(static_cast<unsigned char>(tag)), tag == 0 || tag == 15) << tag;
}
