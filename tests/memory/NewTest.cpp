// Objects in buffers, aligned for their types.

#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"

namespace {

using namespace ZBase;
using test::BufferPtr;
using test::Implementation;

constexpr std::size_t kMax = std::numeric_limits<std::size_t>::max();

template <std::size_t kAlignment>
struct alignas(kAlignment) Aligned {
    unsigned char bytes[kAlignment];
};

bool IsAligned(const volatile void* object, std::size_t alignment) {
    return reinterpret_cast<std::uintptr_t>(object) % alignment == 0;
}

class NewInABuffer : public testing::TestWithParam<Implementation> {
protected:
    BufferPtr Make() { return test::MakeBuffer(GetParam(), {.initialBlocks = 1}); }
};

INSTANTIATE_TEST_SUITE_P(Both, NewInABuffer, testing::ValuesIn(test::kImplementations),
                         [](const auto& tested) { return test::NameOf(tested.param); });

template <std::size_t kAlignment>
void ExpectAlignedByTheLanguage(Buffer* buffer) {
    for (int i = 0; i != 5; ++i) {
        buffer->Allocate(8);
        EXPECT_TRUE(IsAligned(new (buffer) Aligned<kAlignment>, kAlignment));
        buffer->Allocate(8);
        EXPECT_TRUE(IsAligned(new (buffer) Aligned<kAlignment>[3], kAlignment));
    }
}

TEST_P(NewInABuffer, PlacementAlignsWhatNeedsMoreThanTheHeapGives) {
    BufferPtr buffer = Make();
    ExpectAlignedByTheLanguage<32>(buffer.get());
    ExpectAlignedByTheLanguage<64>(buffer.get());
    ExpectAlignedByTheLanguage<4096>(buffer.get());
}

// The placement forms of a buffer don't hide those of the language.
TEST(NewInMemory, OfAlignedTypesIsThatOfTheLanguage) {
    alignas(64) unsigned char memory[128];
    EXPECT_EQ(static_cast<void*>(new (static_cast<void*>(memory)) Aligned<64>), memory);
    EXPECT_EQ(static_cast<void*>(::new (static_cast<void*>(memory)) Aligned<32>[2]), memory);
    std::vector<Aligned<64>> many(3);
    many.resize(10);
    EXPECT_TRUE(IsAligned(many.data(), 64));
}

TEST_P(NewInABuffer, AlignmentCostsAtMostItsDistanceFromEight) {
    BufferPtr buffer = Make();
    (void)::operator new(40, std::align_val_t{64}, buffer.get());
    EXPECT_EQ(buffer->GetUsedBytes(), 40u + 56);
    (void)::operator new(40, std::align_val_t{8}, buffer.get());
    (void)::operator new[](40, std::align_val_t{1}, buffer.get());
    EXPECT_EQ(buffer->GetUsedBytes(), 40u + 56 + 80);
}

TEST_P(NewInABuffer, AlignedPieceOfNothingIsAPieceOfItsOwn) {
    BufferPtr buffer = Make();
    auto* const first = static_cast<char*>(::operator new(0, std::align_val_t{32}, buffer.get()));
    auto* const second = static_cast<char*>(buffer->Allocate(8));
    EXPECT_TRUE(IsAligned(first, 32));
    EXPECT_GE(second - first, 8);
}

TEST_P(NewInABuffer, SizesAndAlignmentsThatNothingHasFail) {
    BufferPtr buffer = Make();
    for (const std::size_t size : {kMax, kMax - 55, kMax - 56, kMax / 2})
        EXPECT_THROW((void)::operator new(size, std::align_val_t{64}, buffer.get()), std::bad_alloc) << size;
    for (const std::size_t alignment : {std::size_t{24}, std::size_t{48}, kMax, kMax / 2 + 1})
        EXPECT_THROW((void)::operator new(8, std::align_val_t{alignment}, buffer.get()), std::bad_alloc);
    EXPECT_EQ(buffer->GetUsedBytes(), 0u);
}

TEST_P(NewInABuffer, AlignedPieceOfAThrowingConstructorStaysSpent) {
    struct alignas(32) Thrower {
        Thrower() { throw std::runtime_error("no"); }
    };
    BufferPtr buffer = Make();
    EXPECT_THROW((void)new (buffer.get()) Thrower, std::runtime_error);
    EXPECT_THROW((void)new (buffer.get()) Thrower[2], std::runtime_error);
    EXPECT_GT(buffer->GetUsedBytes(), 0u);
}

TEST_P(NewInABuffer, NewAlignsEveryType) {
    BufferPtr buffer = Make();
    for (int i = 0; i != 10; ++i) {
        buffer->Allocate(8);
        EXPECT_TRUE(IsAligned(New<Aligned<8>>(buffer.get()), 8));
        EXPECT_TRUE(IsAligned(New<Aligned<16>>(buffer.get()), 16));
        EXPECT_TRUE(IsAligned(New<long double>(buffer.get(), 1.0L), alignof(long double)));
        EXPECT_TRUE(IsAligned(New<Aligned<128>>(buffer.get()), 128));
        buffer->Allocate(8);
        EXPECT_TRUE(IsAligned(New<Aligned<16>[]>(buffer.get(), 3), 16));
        EXPECT_TRUE(IsAligned(New<char[]>(buffer.get(), 3), 1));
    }
}

TEST_P(NewInABuffer, NewOfAByteTypeCostsAPiece) {
    BufferPtr buffer = Make();
    *New<char>(buffer.get()) = 'a';
    EXPECT_EQ(buffer->GetUsedBytes(), 8u);
}

// Counts living objects, and records the order of destruction.
struct Tracked {
    explicit Tracked(int number = 0) : name(number) {
        if (failing-- == 0) throw std::runtime_error("no");
        ++live;
    }
    ~Tracked() {
        --live;
        ends.push_back(name);
    }
    Tracked(const Tracked&) = delete;
    Tracked& operator=(const Tracked&) = delete;

    int name;
    std::string text = "longer than what a string holds within itself";

    static inline int live;
    static inline int failing;
    static inline std::vector<int> ends;
    static void Reset() {
        live = 0;
        failing = -1;
        ends.clear();
    }
};

TEST_P(NewInABuffer, NewRegistersTheEndOfWhatHasOne) {
    Tracked::Reset();
    BufferPtr buffer = Make();
    for (int name : {1, 2, 3}) EXPECT_EQ(New<Tracked>(buffer.get(), name)->name, name);
    EXPECT_EQ(Tracked::live, 3);
    buffer->Lock();
    buffer.reset();
    EXPECT_EQ(Tracked::live, 0);
    const bool lockFree = GetParam() == Implementation::kLockFree;
    EXPECT_EQ(Tracked::ends, lockFree ? (std::vector<int>{3, 2, 1}) : (std::vector<int>{1, 2, 3}));
}

TEST_P(NewInABuffer, NewOfAnArrayEndsItsElementsFromTheLast) {
    Tracked::Reset();
    BufferPtr buffer = Make();
    Tracked* const elements = New<Tracked[]>(buffer.get(), 4);
    for (int i = 0; i != 4; ++i) elements[i].name = i;
    EXPECT_NE(New<Tracked[]>(buffer.get(), 0), nullptr);
    EXPECT_EQ(Tracked::live, 4);
    buffer.reset();
    EXPECT_EQ(Tracked::ends, (std::vector<int>{3, 2, 1, 0}));
}

TEST_P(NewInABuffer, NewOfAnArrayMakesItsElementsAsTheirTypeSays) {
    BufferPtr buffer = Make();
    auto* const dirty = static_cast<unsigned char*>(buffer->Allocate(64));
    for (int i = 0; i != 64; ++i) dirty[i] = 0xFF;
    const int* const numbers = New<int[]>(buffer.get(), 100);
    for (int i = 0; i != 100; ++i) EXPECT_EQ(numbers[i], 0);
    const std::string* const texts = New<std::string[]>(buffer.get(), 10);
    for (int i = 0; i != 10; ++i) EXPECT_EQ(texts[i], "");
}

TEST_P(NewInABuffer, NewTakesAggregates) {
    struct Point {
        int x;
        int y;
    };
    BufferPtr buffer = Make();
    const Point* const point = New<Point>(buffer.get(), 3, 4);
    EXPECT_EQ(point->x, 3);
    EXPECT_EQ(point->y, 4);
}

TEST_P(NewInABuffer, FailedConstructorEndsOnlyWhatWasMade) {
    Tracked::Reset();
    BufferPtr buffer = Make();
    Tracked::failing = 0;
    EXPECT_THROW(New<Tracked>(buffer.get(), 1), std::runtime_error);
    Tracked::failing = 2;
    EXPECT_THROW(New<Tracked[]>(buffer.get(), 5), std::runtime_error);
    EXPECT_EQ(Tracked::live, 0);
    EXPECT_EQ(Tracked::ends.size(), 2u);
    buffer.reset();
    EXPECT_EQ(Tracked::ends.size(), 2u);
}

TEST(NewInALockFreeBuffer, EndThatCanNotBeRegisteredComesAtOnce) {
    Tracked::Reset();
    Buffer::sGrowDanamically = false;
    test::RecordingContract contract;
    BufferPtr buffer = test::MakeBuffer(Implementation::kLockFree,
                                        {.initialBlocks = 1, .contract = &contract, .blockSize = 256});
    contract.chunkCode = 8;
    buffer->Allocate(256 - sizeof(Tracked));
    EXPECT_THROW(New<Tracked>(buffer.get(), 1), ContractManagerAllocException);
    EXPECT_EQ(Tracked::live, 0);
    EXPECT_EQ(Tracked::ends, (std::vector<int>{1}));
    buffer.reset();
    EXPECT_EQ(Tracked::ends.size(), 1u);
    Buffer::sGrowDanamically = true;
}

TEST_P(NewInABuffer, CountsWhoseBytesNoObjectHasFail) {
    BufferPtr buffer = Make();
    for (const std::size_t count : {kMax, kMax / 4, kMax / 8 + 1, kMax / 16 + 1}) {
        EXPECT_THROW((void)New<double[]>(buffer.get(), count), std::bad_array_new_length) << count;
        EXPECT_THROW((void)New<Tracked[]>(buffer.get(), count), std::bad_array_new_length) << count;
    }
    EXPECT_EQ(buffer->GetUsedBytes(), 0u);
}

}  // namespace
