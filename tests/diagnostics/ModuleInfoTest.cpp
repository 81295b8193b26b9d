#include <Base/diagnostics/ModuleInfo.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryFile.h"

namespace {

using ZBase::ModuleInfo;

// An address of this program.
void Here() {}
const auto kHere = reinterpret_cast<std::uint64_t>(&Here);
const std::string kThisProgram =
    std::filesystem::path(test::ChildProgram("diagnostics_tests")).filename().string();
constexpr std::uint64_t kHighest = ~std::uint64_t{0};

// As they were given, where nothing is found.
struct Found {
    std::string name = "n";
    std::uint64_t base = 7;

    bool operator==(const Found&) const = default;
};

Found Find(ModuleInfo& modules, std::uint64_t address) {
    Found found;
    modules.FetchModuleNameAndBaseAddress(address, found.name, found.base);
    return found;
}

TEST(ModuleInfo, BeforeInitializeLeavesTheResultsAlone) {
    ModuleInfo modules;
    EXPECT_EQ(Find(modules, kHere), Found());
}

TEST(ModuleInfo, NamesTheModuleOfAnAddress) {
    ModuleInfo modules;
    modules.Initialize();
    modules.Initialize();
    const Found here = Find(modules, kHere);
    EXPECT_EQ(here.name, kThisProgram);
    EXPECT_LT(here.base, kHere);
    EXPECT_EQ(here.base % 4096, 0U);
}

TEST(ModuleInfo, AddressOfABaseSelectsTheModuleBelow) {
    ModuleInfo modules;
    modules.Initialize();
    const Found last = Find(modules, kHighest);
    const Found below = Find(modules, last.base);
    EXPECT_LT(below.base, last.base);
    EXPECT_NE(below.name, last.name);
}

TEST(ModuleInfo, AddressBeyondTheLastModulesEndSelectsTheLastModule) {
    ModuleInfo modules;
    modules.Initialize();
    const Found last = Find(modules, kHighest);
    EXPECT_NE(last, Found());
    EXPECT_EQ(Find(modules, last.base + 1), last);
}

TEST(ModuleInfo, ThreadsInitializeAtOnceAndEachFindsTheModules) {
    for (int round = 0; round != 50; ++round) {
        ModuleInfo modules;
        std::atomic<int> found{0};
        std::vector<std::thread> threads;
        for (int i = 0; i != 4; ++i) {
            threads.emplace_back([&] {
                modules.Initialize();
                found += Find(modules, kHere).name == kThisProgram;
            });
        }
        for (std::thread& thread : threads) thread.join();
        EXPECT_EQ(found, 4);
    }
}

TEST(ModuleInfo, AddressBelowTheLowestModuleLeavesTheResultsAlone) {
    ModuleInfo modules;
    modules.Initialize();
    EXPECT_EQ(Find(modules, 0), Found());
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
    EXPECT_EQ(Find(modules, kHere), Found());
}

TEST(ModuleInfo, ReportWithoutAFileIsTrue) {
    EXPECT_TRUE(ModuleInfo().FprintfModuleInfo(nullptr));
}

}  // namespace
