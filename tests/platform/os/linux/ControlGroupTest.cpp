#include <Base/platform/os/linux/host/ControlGroup.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using ZBase::os::ControlGroup;

class ControlGroups : public testing::Test {
protected:
    void SetUp() override {
        char name[] = "/tmp/zbase-group-XXXXXX";
        mMount = mkdtemp(name);
        fs::create_directories(mMount / "a/b");
    }
    void TearDown() override { fs::remove_all(mMount); }

    void Write(const std::string& file, const std::string& content) const {
        std::ofstream(mMount / file) << content << "\n";
    }
    ControlGroup Group(const char* path) const { return {mMount.string(), path}; }
    ControlGroup FromProcess(const std::string& groups, const std::string& root) const {
        return ControlGroup::FromProcess(
            groups, "20 1 8:1 / / rw - ext4 /dev/sda1 rw\n30 20 0:26 " + root + " " + mMount.string() +
                        " rw,nosuid shared:4 - cgroup2 cgroup2 rw\n40 20 0:27 / /proc rw - proc proc rw\n");
    }

    fs::path mMount;
};

TEST_F(ControlGroups, WithoutFilesNothingIsLimited) {
    EXPECT_EQ(Group("/a/b").MemoryLimit(), ControlGroup::kUnlimited);
    EXPECT_EQ(Group("/a/b").ProcessorLimit(), ControlGroup::kUnlimited);
    EXPECT_EQ(Group("/not/there").MemoryLimit(), ControlGroup::kUnlimited);
    EXPECT_EQ(ControlGroup("", "/a").MemoryLimit(), ControlGroup::kUnlimited);
}

TEST_F(ControlGroups, TheSmallestLimitOnTheWayUpCounts) {
    Write("a/b/memory.max", "max");
    Write("a/memory.max", "1048576");
    EXPECT_EQ(Group("/a/b").MemoryLimit(), 1048576u);
    Write("a/b/memory.max", "4096");
    EXPECT_EQ(Group("/a/b/").MemoryLimit(), 4096u);
    EXPECT_EQ(Group("/a").MemoryLimit(), 1048576u);
    EXPECT_EQ(Group("/").MemoryLimit(), ControlGroup::kUnlimited);
    Write("memory.max", "100");
    EXPECT_EQ(Group("/a/b").MemoryLimit(), 100u);
    EXPECT_EQ(Group("/").MemoryLimit(), 100u);
}

TEST_F(ControlGroups, APartOfAProcessorCountsAsOne) {
    Write("a/cpu.max", "max 100000");
    EXPECT_EQ(Group("/a").ProcessorLimit(), ControlGroup::kUnlimited);
    Write("a/cpu.max", "150000 100000");
    EXPECT_EQ(Group("/a").ProcessorLimit(), 2u);
    Write("a/cpu.max", "200000 100000");
    EXPECT_EQ(Group("/a").ProcessorLimit(), 2u);
    Write("a/b/cpu.max", "1000 100000");
    EXPECT_EQ(Group("/a/b").ProcessorLimit(), 1u);
    Write("a/b/cpu.max", "0 100000");
    EXPECT_EQ(Group("/a/b").ProcessorLimit(), 1u);
}

TEST_F(ControlGroups, WhatCantBeReadLimitsNothing) {
    for (const char* content : {"", "nonsense", "100000", "100000 0", "5 max", "-1 100000"}) {
        Write("a/cpu.max", content);
        EXPECT_EQ(Group("/a").ProcessorLimit(), ControlGroup::kUnlimited) << content;
    }
    Write("a/memory.max", "99999999999999999999999");
    EXPECT_EQ(Group("/a").MemoryLimit(), ControlGroup::kUnlimited);
}

TEST_F(ControlGroups, AProcessIsInTheGroupOfVersionTwo) {
    Write("a/b/memory.max", "4096");
    const std::string groups = "9:memory:/else\n1:name=systemd:/x\n0::/a/b\n";
    EXPECT_EQ(FromProcess(groups, "/").MemoryLimit(), 4096u);
    EXPECT_EQ(FromProcess("0::/outer/a/b\n", "/outer").MemoryLimit(), 4096u);
    EXPECT_EQ(FromProcess("9:memory:/a/b\n", "/").MemoryLimit(), ControlGroup::kUnlimited);
    EXPECT_EQ(FromProcess("", "/").MemoryLimit(), ControlGroup::kUnlimited);
    EXPECT_EQ(ControlGroup::FromProcess(groups, "20 1 8:1 / / rw - ext4 /dev/sda1 rw\n").MemoryLimit(),
              ControlGroup::kUnlimited);
}

TEST_F(ControlGroups, AGroupOutsideOfTheMountHasTheLimitsOfTheMount) {
    Write("memory.max", "8192");
    Write("a/memory.max", "4096");
    EXPECT_EQ(FromProcess("0::/../other\n", "/").MemoryLimit(), 8192u);
    EXPECT_EQ(FromProcess("0::/..\n", "/").MemoryLimit(), 8192u);
    EXPECT_EQ(FromProcess("0::/outer2/a\n", "/outer").MemoryLimit(), 8192u);
    EXPECT_EQ(FromProcess("0::/outer/a\n", "/outer").MemoryLimit(), 4096u);
}

TEST_F(ControlGroups, ANameMayHaveTwoDots) {
    fs::create_directories(mMount / "app@1..2.service");
    Write("app@1..2.service/memory.max", "4096");
    EXPECT_EQ(FromProcess("0::/app@1..2.service\n", "/").MemoryLimit(), 4096u);
}

}  // namespace
