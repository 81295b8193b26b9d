#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/StandInBuffer.h"

namespace {

using namespace ZBase::Literals;

/// A buffer that records its pieces.
class RecordingBuffer final : public test::StandInBuffer {
public:
    ~RecordingBuffer() override {
        for (void* piece : pieces) std::free(piece);
    }
    void* Allocate(std::size_t size) override {
        if (refuse) throw std::bad_alloc();
        pieces.push_back(std::malloc(size));
        sizes.push_back(size);
        return pieces.back();
    }

    std::vector<void*> pieces;
    std::vector<std::size_t> sizes;
    bool refuse = false;
};

using Units = ZBase::Allocator<unsigned short>;

TEST(Allocator, IsOneBufferPointerAndNullByDefault) {
    EXPECT_EQ(sizeof(Units), sizeof(void*));
    EXPECT_EQ(Units().GetBuffer(), nullptr);
}

TEST(Allocator, WithoutABufferUsesTheHeapAndFrees) {
    const std::size_t before = test::LiveBlocks();
    {
        const ZBase::WideString text(1000, 'x');
        EXPECT_GT(test::LiveBlocks(), before);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST(Allocator, StringInABufferNeverGivesItsOldBlockBack) {
    RecordingBuffer buffer;
    buffer.pieces.reserve(100);
    buffer.sizes.reserve(100);
    const std::size_t before = test::LiveBlocks();
    {
        ZBase::WideString text{Units(&buffer)};
        for (int i = 0; i != 100; ++i) text.push_back('x');
        EXPECT_GE(buffer.pieces.size(), 2u);
        EXPECT_EQ(text.size(), 100u);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
    for (std::size_t i = 0; i != buffer.pieces.size(); ++i) {
        static_cast<char*>(buffer.pieces[i])[buffer.sizes[i] - 1] = 1;  // still ours to write
    }
}

TEST(Allocator, FailureOfTheBufferPasses) {
    RecordingBuffer buffer;
    buffer.refuse = true;
    EXPECT_THROW((void)Units(&buffer).allocate(10), std::bad_alloc);
}

TEST(Allocator, CountWhoseBytesDoNotFitIsABadArrayLength) {
    constexpr std::size_t limit = PTRDIFF_MAX / sizeof(unsigned short);
    EXPECT_THROW((void)Units().allocate(limit + 1), std::bad_array_new_length);
    EXPECT_THROW((void)Units().allocate(limit), std::bad_alloc);
    EXPECT_THROW((void)Units().allocate(std::numeric_limits<std::size_t>::max()), std::bad_array_new_length);
}

TEST(Allocator, EqualIfOneCanFreeWhatTheOtherGave) {
    RecordingBuffer a;
    RecordingBuffer b;
    EXPECT_TRUE(Units() == Units());
    EXPECT_TRUE(Units(&a) == Units(&a));
    EXPECT_FALSE(Units(&a) == Units(&b));
    EXPECT_FALSE(Units(&a) == Units());
    EXPECT_EQ(ZBase::Allocator<int>(Units(&a)).GetBuffer(), &a);
}

// The containers of the tests below each hold one element whose allocations the heap and the buffer count.
template <class Container>
class AllocatorOfAContainer : public testing::Test {
public:
    using Alloc = typename Container::allocator_type;

    static Container Make(ZBase::Buffer* buffer, unsigned short content) {
        Container made{Alloc(buffer)};
        if constexpr (requires { typename Container::mapped_type; }) {
            for (unsigned short i = 0; i != 50; ++i) made.emplace(i, content);
        } else {
            for (int i = 0; i != 50; ++i) made.insert(made.end(), content);
        }
        return made;
    }
};

template <class T>
using In = ZBase::Allocator<T>;
using Pair = std::pair<const unsigned short, unsigned short>;
using Containers = testing::Types<ZBase::WideString, std::vector<unsigned short, In<unsigned short>>,
                                  std::list<unsigned short, In<unsigned short>>,
                                  std::map<unsigned short, unsigned short, std::less<>, In<Pair>>>;
TYPED_TEST_SUITE(AllocatorOfAContainer, Containers);

TYPED_TEST(AllocatorOfAContainer, SwapTakesTheBufferAlong) {
    const std::size_t before = test::LiveBlocks();
    {
        RecordingBuffer buffer;
        RecordingBuffer otherBuffer;
        TypeParam heap = this->Make(nullptr, 1);
        TypeParam region = this->Make(&buffer, 2);
        TypeParam other = this->Make(&otherBuffer, 3);
        const TypeParam one(heap);
        const TypeParam two(region);
        const TypeParam three(other);
        heap.swap(region);
        EXPECT_EQ(heap.get_allocator().GetBuffer(), &buffer);
        EXPECT_EQ(region.get_allocator().GetBuffer(), nullptr);
        swap(heap, other);
        EXPECT_EQ(heap, three);
        EXPECT_EQ(heap.get_allocator().GetBuffer(), &otherBuffer);
        EXPECT_EQ(other, two);
        EXPECT_EQ(region, one);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TYPED_TEST(AllocatorOfAContainer, CopyIsInTheHeapAndOutlivesTheBuffer) {
    auto buffer = std::make_unique<RecordingBuffer>();
    const TypeParam heap = this->Make(nullptr, 2);
    const std::size_t before = test::LiveBlocks();
    {
        auto region = std::make_unique<TypeParam>(this->Make(buffer.get(), 2));
        const std::size_t pieces = buffer->pieces.size();
        const TypeParam copy(*region);
        EXPECT_EQ(copy.get_allocator().GetBuffer(), nullptr);
        EXPECT_EQ(buffer->pieces.size(), pieces);
        region.reset();
        buffer.reset();
        EXPECT_EQ(copy, heap);
    }
    EXPECT_LE(test::LiveBlocks(), before);
}

TYPED_TEST(AllocatorOfAContainer, AssignmentLeavesTheTargetWhereItIs) {
    const std::size_t before = test::LiveBlocks();
    {
        TypeParam heap = this->Make(nullptr, 1);
        const TypeParam expected = this->Make(nullptr, 2);
        {
            RecordingBuffer buffer;
            TypeParam region = this->Make(&buffer, 2);
            heap = region;
            EXPECT_EQ(heap, expected);
            heap = this->Make(nullptr, 1);
            heap = std::move(region);
            EXPECT_EQ(heap.get_allocator().GetBuffer(), nullptr);
            TypeParam target = this->Make(&buffer, 1);
            target = heap;
            EXPECT_EQ(target, expected);
            target = this->Make(nullptr, 1);
            EXPECT_EQ(target.get_allocator().GetBuffer(), &buffer);
        }
        EXPECT_EQ(heap, expected);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TYPED_TEST(AllocatorOfAContainer, MoveIntoANewObjectCarriesTheBufferAlong) {
    const std::size_t before = test::LiveBlocks();
    {
        RecordingBuffer buffer;
        TypeParam region = this->Make(&buffer, 2);
        const std::size_t pieces = buffer.pieces.size();
        const TypeParam moved(std::move(region));
        EXPECT_EQ(moved.get_allocator().GetBuffer(), &buffer);
        EXPECT_LE(buffer.pieces.size(), pieces + 2);  // a list or a deque may keep a head for the source
        const TypeParam heap(std::move(region), typename TestFixture::Alloc());
        EXPECT_EQ(heap.get_allocator().GetBuffer(), nullptr);
    }
    EXPECT_EQ(test::LiveBlocks(), before);
}

TEST(Allocator, SumOfStringsInABufferIsInTheHeap) {
    RecordingBuffer buffer;
    const ZBase::WideString text(100, 'x', Units(&buffer));
    const ZBase::WideString sum = text + text;
    EXPECT_EQ(sum.get_allocator().GetBuffer(), nullptr);
    EXPECT_EQ(text.substr(0, 50).get_allocator().GetBuffer(), nullptr);
    EXPECT_EQ(sum.size(), 200u);
}

TEST(Allocator, SumWithATemporaryContinuesItInItsBuffer) {
    RecordingBuffer buffer;
    const ZBase::WideString text(100, 'y', Units(nullptr));
    EXPECT_EQ((ZBase::WideString(100, 'x', Units(&buffer)) + text).get_allocator().GetBuffer(), &buffer);
    EXPECT_EQ((text + ZBase::WideString(100, 'x', Units(&buffer))).get_allocator().GetBuffer(), &buffer);
}

TEST(AllocatorPlacementNew, TakesAPieceAndDeleteGivesNothingBack) {
    struct Throws {
        Throws() { throw std::runtime_error("no"); }
        long long payload[4];
    };
    RecordingBuffer buffer;
    const int* number = new (&buffer) int(42);
    EXPECT_EQ(*number, 42);
    EXPECT_EQ(number, buffer.pieces.at(0));
    EXPECT_THROW(new (&buffer) Throws, std::runtime_error);
    EXPECT_EQ(buffer.sizes.at(1), sizeof(Throws));
    const char* bytes = new (&buffer) char[3];
    EXPECT_EQ(bytes, buffer.pieces.at(2));
}

}  // namespace
