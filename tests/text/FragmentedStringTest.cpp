#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "tests/support/Allocations.h"
#include "tests/support/Budgets.h"
#include "tests/support/Buffers.h"
#include "tests/support/StandInBuffer.h"

namespace {

using namespace ZBase;

constexpr int kOutOfMemory = static_cast<int>(0x8007000E);

struct DeleteString {
    void operator()(FragmentedString* string) const { string->Delete(); }
};
using StringPtr = std::unique_ptr<FragmentedString, DeleteString>;

const Allocator<unsigned short> kHeap;

unsigned int Length(FragmentedString& string) {
    unsigned int length = 0;
    EXPECT_EQ(string.GetLength(&length), 0);
    return length;
}
unsigned int TotalBytes(FragmentedString& string) {
    unsigned int bytes = 0;
    EXPECT_EQ(string.GetTotalBytes(&bytes), 0);
    return bytes;
}
unsigned int Fragments(FragmentedString& string) {
    unsigned int count = 0;
    EXPECT_EQ(string.GetFragmentCount(&count), 0);
    return count;
}
unsigned int InitialCapacity(FragmentedString& string) {
    unsigned int capacity = 0;
    EXPECT_EQ(string.GetInitialCapacity(&capacity), 0);
    return capacity;
}

std::u16string Copy(FragmentedString& string, unsigned int count) {
    std::vector<unsigned short> units(count + 1, 0x2603);
    EXPECT_EQ(string.CopyTo(count, units.data()), 0);
    std::u16string text;
    for (const unsigned short unit : units) text.push_back(static_cast<char16_t>(unit));
    const std::size_t copied = std::min(count, Length(string));
    EXPECT_EQ(text[copied], 0x2603) << "something was written behind the text";
    return text.substr(0, copied);
}
std::u16string Text(FragmentedString& string) {
    return Copy(string, Length(string));
}

std::vector<unsigned short> Units(std::size_t count) {
    std::vector<unsigned short> units(count + 1, 0);
    for (std::size_t i = 0; i != count; ++i) units[i] = static_cast<unsigned short>(1 + i % 60000);
    return units;
}

int AppendUnits(FragmentedString& string, std::size_t count) {
    return string.Append(Units(count).data(), static_cast<unsigned int>(count));
}

// A buffer whose pieces come from a function.
class FunctionBuffer final : public test::StandInBuffer {
public:
    void* Allocate(std::size_t size) override {
        if (calls++ < good) {
            blocks.emplace_back(new char[size]);
            return blocks.back().get();
        }
        return fail();
    }

    int calls = 0;
    int good = 0;  // the number of calls that succeed
    std::function<void*()> fail = [] { return nullptr; };
    std::vector<std::unique_ptr<char[]>> blocks;
};

TEST(FragmentedString, CapacityGivesOneExactFragment) {
    StringPtr string(CreateFragmentedString(nullptr, 4, kHeap));
    EXPECT_EQ(TotalBytes(*string), 24u);
    EXPECT_EQ(Fragments(*string), 1u);
    EXPECT_EQ(Length(*string), 0u);
    EXPECT_EQ(InitialCapacity(*string), 4u);
}

TEST(FragmentedString, CapacityOfNothingHoldsNothing) {
    StringPtr string(CreateFragmentedString(nullptr, 0, kHeap));
    EXPECT_EQ(TotalBytes(*string), 16u);
    EXPECT_EQ(AppendUnits(*string, 1), 0);
    EXPECT_EQ(TotalBytes(*string), 16u + 512u);
}

TEST(FragmentedString, ExactFillOpensNothingAndTheNextUnitDoes) {
    StringPtr string(CreateFragmentedString(nullptr, 4, kHeap));
    EXPECT_EQ(AppendUnits(*string, 4), 0);
    EXPECT_EQ(Fragments(*string), 1u);
    EXPECT_EQ(string->AppendChar('x'), 0);
    EXPECT_EQ(Fragments(*string), 2u);
    EXPECT_EQ(TotalBytes(*string), 24u + 512u);
}

TEST(FragmentedString, AppendThatDoesNotFitIsDivided) {
    StringPtr string(CreateFragmentedString(nullptr, 4, kHeap));
    EXPECT_EQ(string->AppendString("abcdef"_w), 0);
    EXPECT_EQ(Length(*string), 6u);
    EXPECT_EQ(TotalBytes(*string), 536u);
    EXPECT_EQ(Fragments(*string), 2u);
    EXPECT_EQ(Text(*string), u"abcdef");
}

TEST(FragmentedString, NeedOfWholeBlocksTakesThemAndOneUnitMoreTakesAnother) {
    for (const auto& [units, size] :
         {std::pair{247u, 512u}, {248u, 512u}, {249u, 1024u}, {504u, 1024u}, {505u, 1536u}}) {
        StringPtr string(CreateFragmentedString(nullptr, 0, kHeap));
        EXPECT_EQ(AppendUnits(*string, units), 0);
        EXPECT_EQ(TotalBytes(*string), 16 + size) << units;
        EXPECT_EQ(Fragments(*string), 2u);
    }
}

TEST(FragmentedString, OneAppendOpensAtMostOneFragment) {
    StringPtr string(CreateFragmentedString(nullptr, 4, kHeap));
    EXPECT_EQ(AppendUnits(*string, 1000000), 0);
    EXPECT_EQ(Fragments(*string), 2u);
    EXPECT_EQ(Length(*string), 1000000u);
}

TEST(FragmentedString, TextAloneGetsRoundedBlocksAndNoCapacity) {
    StringPtr string(CreateFragmentedString("abc"_w, kHeap));
    EXPECT_EQ(TotalBytes(*string), 512u);
    EXPECT_EQ(Fragments(*string), 1u);
    EXPECT_EQ(Length(*string), 3u);
    EXPECT_EQ(InitialCapacity(*string), 0u);
    EXPECT_EQ(Text(*string), u"abc");
}

TEST(FragmentedString, TextAloneOfEachSizeFitsInOneFragment) {
    for (const auto& [units, size] :
         {std::pair{0u, 512u}, {1u, 512u}, {248u, 512u}, {249u, 1024u}, {5000u, 10240u}}) {
        StringPtr string(CreateFragmentedString(Units(units).data(), kHeap));
        EXPECT_EQ(TotalBytes(*string), size) << units;
        EXPECT_EQ(Fragments(*string), 1u);
        EXPECT_EQ(Length(*string), units);
    }
    EXPECT_EQ(TotalBytes(*StringPtr(CreateFragmentedString(nullptr, kHeap))), 512u);
}

TEST(FragmentedString, TextBeyondTheCapacityOpensASecondFragment) {
    StringPtr string(CreateFragmentedString("abcdef"_w, 4, kHeap));
    EXPECT_EQ(Text(*string), u"abcdef");
    EXPECT_EQ(Fragments(*string), 2u);
    EXPECT_EQ(TotalBytes(*string), 536u);
    EXPECT_EQ(InitialCapacity(*string), 4u);
}

TEST(FragmentedString, CopyStopsAtItsCount) {
    StringPtr string(CreateFragmentedString("abcdef"_w, 4, kHeap));
    for (unsigned int count = 0; count <= 10; ++count)
        EXPECT_EQ(Copy(*string, count), std::u16string(u"abcdef").substr(0, count)) << count;
}

TEST(FragmentedString, NullAndEmptyArguments) {
    StringPtr string(CreateFragmentedString("a"_w, kHeap));
    EXPECT_EQ(string->Append(nullptr, 0), 1);
    EXPECT_EQ(string->Append(nullptr, 5), 1);
    EXPECT_EQ(string->Append("b"_w, 0), 0);
    EXPECT_EQ(string->AppendChar(0), 1);
    EXPECT_EQ(string->AppendString(nullptr), 1);
    EXPECT_EQ(string->AppendString(""_w), 0);
    EXPECT_EQ(string->GetLength(nullptr), 1);
    EXPECT_EQ(string->CopyTo(1, nullptr), 1);
    EXPECT_EQ(string->CopyTo(0, nullptr), 0);
    EXPECT_EQ(Text(*string), u"a");
}

TEST(FragmentedString, UnitsOfZeroAreTextInAnAppendByLength) {
    const unsigned short units[] = {'a', 0, 'b'};
    StringPtr string(CreateFragmentedString(nullptr, kHeap));
    EXPECT_EQ(string->Append(units, 3), 0);
    EXPECT_EQ(Text(*string), std::u16string(u"a\0b", 3));
}

TEST(FragmentedString, RandomAppendsGiveTheSameTextAsAString) {
    std::mt19937 random(1);
    for (int round = 0; round != 200; ++round) {
        StringPtr string(CreateFragmentedString(nullptr, random() % 300, kHeap));
        std::u16string expected;
        for (int i = 0; i != 50; ++i) {
            const auto units = Units(random() % 600);
            EXPECT_EQ(string->AppendString(units.data()), 0);
            expected.append(units.begin(), units.end() - 1);
        }
        EXPECT_EQ(Text(*string), expected);
        const auto part = static_cast<unsigned int>(random() % (Length(*string) + 1));
        EXPECT_EQ(Copy(*string, part), expected.substr(0, part));
    }
}

TEST(FragmentedString, NothingLeaksFromTheHeap) {
    const std::size_t live = test::LiveBlocks();
    test::ForEachFailingAllocation([] {
        try {
            StringPtr string(CreateFragmentedString("abcdef"_w, 4, kHeap));
            unsigned int before = Length(*string);
            // The initial text is silently cut when there is no memory for its rest.
            EXPECT_TRUE(before == 6 || before == 4);
            for (int i = 0; i != 3; ++i) {
                const std::vector<unsigned short> units = [] {
                    try {
                        return Units(1000);
                    } catch (const std::bad_alloc&) {
                        return std::vector<unsigned short>();
                    }
                }();
                if (units.empty()) continue;
                const int result = string->Append(units.data(), 1000);
                EXPECT_TRUE(result == 0 || result == kOutOfMemory);
                EXPECT_EQ(result == 0, Length(*string) == before + 1000);
                before = Length(*string);
            }
        } catch (const std::bad_alloc&) {
        }
    });
    EXPECT_EQ(test::LiveBlocks(), live);
}

TEST(FragmentedString, AllOfItLivesInTheBuffer) {
    test::BufferPtr buffer = test::MakeBuffer(test::Implementation::kLockFree);
    const std::size_t live = test::LiveBlocks();
    buffer->EnsureAvailable(4096);
    const std::size_t blocks = test::LiveBlocks();
    FragmentedString* const string = CreateFragmentedString("abc"_w, Allocator<unsigned short>(buffer.get()));
    EXPECT_EQ(string->AppendString(Units(500).data()), 0);
    EXPECT_EQ(test::LiveBlocks(), blocks);
    const std::size_t used = buffer->GetUsedBytes();
    EXPECT_GE(used, TotalBytes(*string));
    string->Delete();
    EXPECT_EQ(buffer->GetUsedBytes(), used);
    EXPECT_EQ(test::LiveBlocks(), blocks);
    (void)live;
}

class FragmentedStringFailures : public testing::Test {
protected:
    // The result of an append whose fragment fails this way; the object and its first fragment were
    // allocated.
    int AppendTo(std::function<void*()> fail) {
        FunctionBuffer buffer;
        buffer.good = 2;
        buffer.fail = std::move(fail);
        FragmentedString* const string =
            CreateFragmentedString(nullptr, 4, Allocator<unsigned short>(&buffer));
        const int result = string->AppendString("abcdef"_w);
        EXPECT_EQ(Text(*string), u"abcd");  // what fitted stays
        EXPECT_EQ(Fragments(*string), 1u);
        buffer.good = 100;
        EXPECT_EQ(string->AppendString("xyz"_w), 0);
        EXPECT_EQ(Text(*string), u"abcdxyz");
        string->Delete();
        return result;
    }
};

TEST_F(FragmentedStringFailures, EachFailureHasItsCode) {
    EXPECT_EQ(AppendTo([] { return nullptr; }), static_cast<int>(0x8007000E));
    EXPECT_EQ(AppendTo([]() -> void* { throw std::bad_alloc(); }), static_cast<int>(0x8007000E));
    EXPECT_EQ(AppendTo([]() -> void* { throw ExceptionImpl<BufferException>(); }),
              static_cast<int>(0x80041FF2));
    EXPECT_EQ(AppendTo([]() -> void* {
                  ExceptionImpl<ContractManagerAllocException> refusal;
                  refusal.SetDomainAndID(0, 1234);
                  throw refusal;
              }),
              1234);
    EXPECT_EQ(AppendTo([]() -> void* { throw MemGoverningException(); }), static_cast<int>(0x8000FFFF));
    EXPECT_EQ(AppendTo([]() -> void* { throw 5; }), static_cast<int>(0x8000FFFF));
}

// Only the result shows it, and that is 0; the rest of the text is not written after the fragment.
TEST_F(FragmentedStringFailures, RefusalWithTheIdZeroStoresNothingBehindTheFragment) {
    EXPECT_EQ(AppendTo([]() -> void* {
                  ExceptionImpl<ContractManagerAllocException> refusal;
                  refusal.SetDomainAndID(0, 0);
                  throw refusal;
              }),
              0);
}

TEST_F(FragmentedStringFailures, NoObjectIsNull) {
    FunctionBuffer buffer;
    EXPECT_EQ(CreateFragmentedString("abc"_w, Allocator<unsigned short>(&buffer)), nullptr);
    EXPECT_EQ(CreateFragmentedString("abc"_w, 4, Allocator<unsigned short>(&buffer)), nullptr);
}

TEST_F(FragmentedStringFailures, NoFirstFragmentIsALong) {
    for (int form = 0; form != 2; ++form) {
        FunctionBuffer buffer;
        buffer.good = 1;
        const Allocator<unsigned short> allocator(&buffer);
        try {
            form == 0 ? CreateFragmentedString("abc"_w, allocator)
                      : CreateFragmentedString("abc"_w, 4, allocator);
            FAIL();
        } catch (const long value) {
            EXPECT_EQ(static_cast<unsigned int>(value), 0x8007000E);
        }
    }
}

TEST_F(FragmentedStringFailures, FailureOfTheFirstFragmentPassesThrough) {
    FunctionBuffer buffer;
    buffer.good = 1;
    buffer.fail = []() -> void* { throw ExceptionImpl<BufferException>(); };
    EXPECT_THROW(CreateFragmentedString("abc"_w, Allocator<unsigned short>(&buffer)), BufferException);
}

TEST_F(FragmentedStringFailures, InitialTextMeetsALongForNullAndIsCutForAnException) {
    FunctionBuffer buffer;
    buffer.good = 2;
    EXPECT_THROW(CreateFragmentedString("abcdef"_w, 4, Allocator<unsigned short>(&buffer)), long);
    FunctionBuffer throwing;
    throwing.good = 2;
    throwing.fail = []() -> void* { throw 5; };
    StringPtr string(CreateFragmentedString("abcdef"_w, 4, Allocator<unsigned short>(&throwing)));
    EXPECT_EQ(Text(*string), u"abcd");
}

TEST(FragmentedString, CapacitiesThatAFragmentCannotCountAreBadAllocation) {
    const std::size_t live = test::LiveBlocks();
    for (const std::uint64_t capacity : {std::uint64_t{0x7FFFFFF8}, std::uint64_t{0x80000000},
                                         std::uint64_t{1} << 32, std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
        EXPECT_THROW(CreateFragmentedString(nullptr, capacity, kHeap), std::bad_alloc) << capacity;
    }
    EXPECT_EQ(test::LiveBlocks(), live);
    StringPtr string(CreateFragmentedString(nullptr, 0x7FFFFFF7, kHeap));  // the largest; never touched
    EXPECT_EQ(TotalBytes(*string), 0xFFFFFFFE);
    EXPECT_EQ(InitialCapacity(*string), 0x7FFFFFF7u);
}

}  // namespace
