// A result uses only the memory pages of its text.

#include <Base/text/MultibyteConversions.h>
#include <Base/text/UnicodeConversions.h>

#include <gtest/gtest.h>

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/Sanitizers.h"
#include "tests/support/WideText.h"

namespace {

const auto kPage = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));

// Pages inside a block that are resident.
std::size_t ResidentPages(const void* block, std::size_t size) {
    const auto start = (reinterpret_cast<std::uintptr_t>(block) + kPage - 1) / kPage * kPage;
    const auto end = (reinterpret_cast<std::uintptr_t>(block) + size) / kPage * kPage;
    std::vector<unsigned char> pages((end - start) / kPage);
    EXPECT_EQ(mincore(reinterpret_cast<void*>(start), end - start, pages.data()), 0);
    return static_cast<std::size_t>(
        std::count_if(pages.begin(), pages.end(), [](unsigned char page) { return (page & 1) != 0; }));
}

template <class Ch>
bool IsZero(const Ch* from, const Ch* to) {
    return std::all_of(from, to, [](Ch element) { return element == 0; });
}

constexpr std::size_t kLength = std::size_t{16} << 20;
constexpr std::size_t kBesideText = 2;  // pages that the ends of a text share with other data

TEST(ResultMemory, NoPageBehindTheEncodedTextIsTouched) {
    const test::Units ascii(kLength, 'a');
    const ZBase::ReturnString result = ZBase::WideCharToUTF8(ascii.c_str(), false);
    EXPECT_LE(ResidentPages(result.c_str(), 4 * kLength), kLength / kPage + kBesideText);
    ASSERT_EQ(result.GetLength(), kLength);
    EXPECT_TRUE(IsZero(result.c_str() + kLength, result.c_str() + 4 * kLength + 1));
}

TEST(ResultMemory, NoPageBehindTheDecodedTextIsTouched) {
    std::string chinese;
    while (chinese.size() < kLength) chinese += "\xE4\xB8\x96";
    const ZBase::ReturnWString result = ZBase::UTF8ToWideChar(chinese.c_str(), false);
    EXPECT_LE(ResidentPages(result.c_str(), 2 * chinese.size()),
              2 * chinese.size() / 3 / kPage + kBesideText);
    ASSERT_EQ(result.GetLength(), chinese.size() / 3);
    EXPECT_TRUE(IsZero(result.c_str() + chinese.size() / 3, result.c_str() + chinese.size() + 1));
}

TEST(ResultMemory, NoPageBehindAMultibyteTextIsTouched) {
    const test::Units ascii(kLength, 'a');
    const ZBase::ReturnString result = ZBase::WideCharToMultiByte(ascii.c_str(), false);
    EXPECT_LE(ResidentPages(result.c_str(), kLength), kLength / kPage + kBesideText);
    EXPECT_EQ(result.GetLength(), kLength);
}

// The heap returns blocks that were written to before.
TEST(ResultMemory, AllBehindTheTextIsZeroInBlocksThatWereUsedBefore) {
    for (const std::size_t length : {10, 100, 4000, 20000, 100000, 1000000}) {
        const test::Units units(length, 'a');
        for (int turn = 0; turn != 3; ++turn) {
            auto dirty = std::make_unique<unsigned char[]>(4 * length + 1);
            std::fill_n(dirty.get(), 4 * length + 1, static_cast<unsigned char>(0xEE));
            dirty.reset();
            const ZBase::ReturnString encoded = ZBase::WideCharToUTF8(units.c_str(), false);
            EXPECT_TRUE(IsZero(encoded.c_str() + length, encoded.c_str() + 4 * length + 1)) << length;
        }
    }
}

}  // namespace
