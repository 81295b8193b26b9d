#include <Base/platform/os/linux/memory/PageRegistry.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <random>
#include <utility>

namespace {

using namespace ZBase;

// Compared with a plain map.
TEST(PageRegistry, KnowsWhatWasAddedAndNotTaken) {
    static constinit os::PageRegistry registry;
    std::map<std::uintptr_t, std::uintptr_t> model;
    std::mt19937 random(20);
    for (int step = 0; step != 40000; ++step) {
        const std::uintptr_t start = (1 + random() % 3000) * 0x10000;
        if (random() % 2 == 0) {
            if (model.contains(start)) continue;
            model[start] = start + 0x1000 * (1 + random() % 16);
            ASSERT_TRUE(registry.Add(start, model[start]));
        } else {
            os::PageRegistry::Entry* const entry = registry.Take(start);
            ASSERT_EQ(entry != nullptr, model.erase(start) == 1) << step;
            if (entry != nullptr) registry.Drop(entry);
        }
        const std::uintptr_t asked = random() % (3002 * 0x10000);
        auto expected = model.upper_bound(asked);
        const bool any = expected != model.begin() && asked < (--expected)->second;
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        ASSERT_EQ(registry.Find(asked, from, to), any) << step;
        if (any) {
            ASSERT_EQ(std::pair(from, to), std::pair(expected->first, expected->second));
        }
    }
}

TEST(PageRegistry, TakesBackWhatCouldNotBeReleased) {
    static constinit os::PageRegistry registry;
    ASSERT_TRUE(registry.Add(0x10000, 0x12000));
    os::PageRegistry::Entry* const entry = registry.Take(0x10000);
    std::uintptr_t from = 0;
    std::uintptr_t to = 0;
    EXPECT_FALSE(registry.Find(0x11FFF, from, to));
    registry.Restore(entry);
    EXPECT_TRUE(registry.Find(0x11FFF, from, to));
    EXPECT_EQ(registry.Take(0x11000), nullptr);
    EXPECT_EQ(registry.Take(0x10000), entry);
    registry.Drop(entry);
}

}  // namespace
