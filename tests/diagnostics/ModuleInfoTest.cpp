#include <Base/diagnostics/ModuleInfo.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TemporaryFile.h"

namespace {

using ZBase::ModuleInfo;

// An address of this program.
void Here() {}

TEST(ModuleInfo, BeforeInitializeLeavesTheResultsAlone) {
    ModuleInfo modules;
    std::string name = "n";
    std::uint64_t base = 7;
    modules.FetchModuleNameAndBaseAddress(reinterpret_cast<std::uint64_t>(&Here), name, base);
    EXPECT_EQ(name, "n");
    EXPECT_EQ(base, 7U);
}

TEST(ModuleInfo, NamesTheModuleOfAnAddress) {
    ModuleInfo modules;
    modules.Initialize();
    modules.Initialize();
    std::string name;
    std::uint64_t base = 0;
    modules.FetchModuleNameAndBaseAddress(reinterpret_cast<std::uint64_t>(&Here), name, base);
    EXPECT_EQ(name, "diagnostics_tests");
    EXPECT_LT(base, reinterpret_cast<std::uint64_t>(&Here));
    EXPECT_EQ(base % 4096, 0U);
}

TEST(ModuleInfo, AddressOfABaseSelectsTheModuleBelow) {
    ModuleInfo modules;
    modules.Initialize();
    std::string name;
    std::uint64_t last = 0;
    modules.FetchModuleNameAndBaseAddress(~std::uint64_t{0}, name, last);
    std::string below = name;
    std::uint64_t base = 0;
    modules.FetchModuleNameAndBaseAddress(last, below, base);
    EXPECT_LT(base, last);
    EXPECT_NE(below, name);
}

TEST(ModuleInfo, AddressBeyondTheLastModulesEndSelectsTheLastModule) {
    ModuleInfo modules;
    modules.Initialize();
    std::string name;
    std::uint64_t base = 0;
    modules.FetchModuleNameAndBaseAddress(~std::uint64_t{0}, name, base);
    EXPECT_NE(name, "");
    std::string again;
    std::uint64_t same = 0;
    modules.FetchModuleNameAndBaseAddress(base + 1, again, same);
    EXPECT_EQ(again, name);
    EXPECT_EQ(same, base);
}

TEST(ModuleInfo, ThreadsInitializeAtOnceAndEachFindsTheModules) {
    for (int round = 0; round != 50; ++round) {
        ModuleInfo modules;
        std::atomic<int> found{0};
        std::vector<std::thread> threads;
        for (int i = 0; i != 4; ++i) {
            threads.emplace_back([&] {
                modules.Initialize();
                std::string name;
                std::uint64_t base = 0;
                modules.FetchModuleNameAndBaseAddress(reinterpret_cast<std::uint64_t>(&Here), name, base);
                found += name == "diagnostics_tests";
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(found, 4);
    }
}

TEST(ModuleInfo, AddressBelowTheLowestModuleLeavesTheResultsAlone) {
    ModuleInfo modules;
    modules.Initialize();
    std::string name = "n";
    std::uint64_t base = 7;
    modules.FetchModuleNameAndBaseAddress(0, name, base);
    EXPECT_EQ(name, "n");
    EXPECT_EQ(base, 7U);
}

TEST(ModuleInfo, ReportHasALineForEachModuleAndEndsTheLookUps) {
    ModuleInfo modules;
    const test::TemporaryFile report;
    std::FILE* file = std::fopen(report.Path(), "w");
    EXPECT_TRUE(modules.FprintfModuleInfo(file));
    std::fclose(file);
    std::istringstream text(report.Text());
    int lines = 0;
    std::uint64_t before = 0;
    for (std::string line; std::getline(text, line); ++lines) {
        char name[256];
        char pointer[32];
        long size = 0;
        ASSERT_EQ(std::sscanf(line.c_str(), "%255s %31s %ld", name, pointer, &size), 3) << line;
        EXPECT_EQ(std::string(pointer).size(), 16U);
        const std::uint64_t base = std::stoull(pointer, nullptr, 16);
        EXPECT_GT(base, before);
        EXPECT_EQ(size, static_cast<std::int32_t>(static_cast<std::uint32_t>(0 - base))) << line;
        before = base;
    }
    EXPECT_GT(lines, 4);
    std::string name = "n";
    std::uint64_t base = 7;
    modules.FetchModuleNameAndBaseAddress(reinterpret_cast<std::uint64_t>(&Here), name, base);
    EXPECT_EQ(name, "n");
}

TEST(ModuleInfo, ReportWithoutAFileIsTrue) {
    EXPECT_TRUE(ModuleInfo().FprintfModuleInfo(nullptr));
}

}  // namespace
