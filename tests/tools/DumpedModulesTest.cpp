#include "tools/zbase/crash/DumpedModules.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

/// A dump with the stream of the system and that of one module.
class DumpedModules : public testing::Test {
protected:
    DumpedModules() : mDump(kName + 4 + 2 * sizeof kPath, '\0') {
        std::memcpy(mDump.data(), "MDMP", 4);
        Number(8, 2);    // streams
        Number(12, 32);  // their directory
        Stream(32, 7, 56, 100);
        Stream(44, 4, 4 + 108, 200);
        Number(100 + 20, 2);  // Windows
        Number(200, 1);       // module
        Number(204 + 8, 0x5000);
        Number(204 + 16, 0x11223344);
        Number(204 + 20, kName);
        Number(kName, 2 * (sizeof kPath - 1));
        for (std::size_t i = 0; i != sizeof kPath; ++i) mDump[kName + 4 + 2 * i] = kPath[i];
    }

    void Number(std::size_t at, std::uint32_t number) { std::memcpy(&mDump[at], &number, sizeof number); }

    void Stream(std::size_t at, std::uint32_t type, std::uint32_t size, std::uint32_t place) {
        Number(at, type);
        Number(at + 4, size);
        Number(at + 8, place);
    }

    static constexpr char kPath[] = "Z:\\a\\b.exe";
    static constexpr std::size_t kName = 320;

    std::string mDump;
};

TEST_F(DumpedModules, ModuleWithoutAnIdentifierGetsOneOfItsStampAndSize) {
    const std::string changed = WithModuleIdentifiers(mDump);
    const std::string record("RSDS\x44\x33\x22\x11\0\0\0\0\0\0\0\0\0\0\0\0\0\x50\0\0b.exe\0", 30);
    EXPECT_EQ(changed.substr(mDump.size()), record);
    std::uint32_t place[2];
    std::memcpy(place, &changed[204 + 76], sizeof place);
    EXPECT_EQ(place[0], record.size());
    EXPECT_EQ(place[1], mDump.size());
}

TEST_F(DumpedModules, IdentifierThatIsThereStays) {
    Number(204 + 76, 1);
    EXPECT_EQ(WithModuleIdentifiers(mDump), mDump);
}

TEST_F(DumpedModules, ImagesAreFoundByTheirPaths) {
    const auto images = ImagesInDump(mDump);
    ASSERT_EQ(images.size(), 1u);
    EXPECT_EQ(images.begin()->first, kPath);
    EXPECT_EQ(images.begin()->second, (ImageIdentity{0x11223344, 0x5000}));
}

TEST_F(DumpedModules, DumpOfAnotherSystemIsLeftAsItIs) {
    Number(100 + 20, 0x8201);
    EXPECT_TRUE(ImagesInDump(mDump).empty());
    EXPECT_EQ(WithModuleIdentifiers(mDump), mDump);
}

TEST_F(DumpedModules, DamagedDumpIsReadWithinItsBounds) {
    const std::string whole = mDump;
    for (std::size_t end = 0; end != whole.size(); ++end) {
        ImagesInDump(whole.substr(0, end));
        WithModuleIdentifiers(whole.substr(0, end));
    }
    for (std::size_t at = 4; at != whole.size(); ++at) {
        for (const int bits : {0xFF, 0x80, 0x7F}) {
            mDump = whole;
            mDump[at] = static_cast<char>(mDump[at] ^ bits);
            ImagesInDump(mDump);
            WithModuleIdentifiers(mDump);
        }
    }
}

}  // namespace
