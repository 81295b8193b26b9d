#include <Base/diagnostics/ModuleInfo.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "tests/scripted/ScriptedModuleList.h"
#include "tests/support/TemporaryFile.h"

namespace {

using test::gModuleList;
using ZBase::ModuleInfo;

class ModuleInfoOverScript : public testing::Test {
protected:
    void SetUp() override {
        gModuleList = {};
        gModuleList.modules = {{0x9000, "third"}, {0x1000, "first"}, {0x5000, "second"}};
    }
    void TearDown() override { gModuleList = {}; }

    /// The name and base of the result; "- 7" if it is unchanged.
    std::string Find(std::uint64_t address) {
        std::string name = "-";
        std::uint64_t base = 7;
        mModules.FetchModuleNameAndBaseAddress(address, name, base);
        char text[24];
        std::snprintf(text, sizeof text, " %llx", static_cast<unsigned long long>(base));
        return name + text;
    }

    std::string Report() {
        const test::TemporaryFile report;
        std::FILE* file = std::fopen(report.Path(), "w");
        EXPECT_TRUE(mModules.FprintfModuleInfo(file));
        std::fclose(file);
        return report.Text();
    }

    ModuleInfo mModules;
};

TEST_F(ModuleInfoOverScript, AddressSelectsTheLastBaseBelowIt) {
    mModules.Initialize();
    EXPECT_EQ(Find(0x1001), "first 1000");
    EXPECT_EQ(Find(0x4FFF), "first 1000");
    EXPECT_EQ(Find(0x5000), "first 1000");  // a base selects the module below
    EXPECT_EQ(Find(0x5001), "second 5000");
    EXPECT_EQ(Find(0x9001), "third 9000");
    EXPECT_EQ(Find(~std::uint64_t{0}), "third 9000");
}

TEST_F(ModuleInfoOverScript, LowestBaseAndWhatIsBelowSelectNothing) {
    mModules.Initialize();
    EXPECT_EQ(Find(0x1000), "- 7");
    EXPECT_EQ(Find(0xFFF), "- 7");
    EXPECT_EQ(Find(0), "- 7");
}

TEST_F(ModuleInfoOverScript, ReportHasALineForEachOfItsModules) {
    EXPECT_EQ(Report(),
              "first 0000000000001000 -4096\n"
              "second 0000000000005000 -20480\n"
              "third 0000000000009000 -36864\n");
    EXPECT_EQ(Find(0x5001), "- 7");  // the ends are zeros now
}

TEST_F(ModuleInfoOverScript, ReportOfNoModulesIsEmptyAndTrue) {
    gModuleList.modules.clear();
    EXPECT_EQ(Report(), "");
    EXPECT_EQ(Find(0x5001), "- 7");
}

TEST_F(ModuleInfoOverScript, SizeIsCutTo32Bits) {
    gModuleList.modules = {{0x7FFF00001000, "high"}};
    EXPECT_EQ(Report(), "high 00007FFF00001000 -4096\n");
}

TEST_F(ModuleInfoOverScript, FailedEnumerationIsNotTriedAgain) {
    gModuleList.enumerates = false;
    mModules.Initialize();
    gModuleList.enumerates = true;
    mModules.Initialize();
    EXPECT_EQ(gModuleList.enumerations, 1);
    EXPECT_EQ(Report(), "");
}

TEST_F(ModuleInfoOverScript, IsReadOnce) {
    mModules.Initialize();
    gModuleList.modules.push_back({0xD000, "late"});
    Report();
    mModules.Initialize();
    EXPECT_EQ(gModuleList.enumerations, 1);
    EXPECT_EQ(Find(0xD001), "- 7");
}

TEST_F(ModuleInfoOverScript, HoldsTheFirst256Modules) {
    gModuleList.modules.clear();
    for (std::uint64_t i = 1; i != 301; ++i) gModuleList.modules.push_back({i << 16, std::to_string(i)});
    mModules.Initialize();
    EXPECT_EQ(Find(~std::uint64_t{0}), "256 1000000");
}

TEST_F(ModuleInfoOverScript, ModuleWithoutInformationIsLeftOutAndOneWithoutANameIsNot) {
    gModuleList.modules[0].hasInformation = false;
    gModuleList.modules[2].name.clear();
    EXPECT_EQ(Report(), "first 0000000000001000 -4096\n 0000000000005000 -20480\n");
}

TEST_F(ModuleInfoOverScript, LaterNameOfABaseReplacesTheEarlier) {
    gModuleList.modules.push_back({0x1000, "again"});
    mModules.Initialize();
    EXPECT_EQ(Find(0x1001), "again 1000");
}

}  // namespace
