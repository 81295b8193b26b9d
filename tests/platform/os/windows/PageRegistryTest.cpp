#include <Base/platform/os/windows/memory/PageRegistry.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <utility>

namespace {

using namespace ZBase;

TEST(PageRegistry, FindsWhatLiesInside) {
    os::PageRegistry registry;
    ASSERT_TRUE(registry.Add(0x1000, 0x3000));
    std::uintptr_t start = 0;
    std::uintptr_t end = 0;
    EXPECT_FALSE(registry.Find(0xFFF, start, end));
    EXPECT_TRUE(registry.Find(0x1000, start, end));
    EXPECT_TRUE(registry.Find(0x2FFF, start, end));
    EXPECT_EQ(start, 0x1000u);
    EXPECT_EQ(end, 0x3000u);
    EXPECT_FALSE(registry.Find(0x3000, start, end));
    os::PageRegistry::Entry entry = registry.Take(0x1000);
    EXPECT_FALSE(entry.empty());
    EXPECT_TRUE(registry.Take(0x1000).empty());
    registry.Restore(std::move(entry));
    EXPECT_TRUE(registry.Find(0x1000, start, end));
}

}  // namespace
