#include <Base/ZBase.h>

#include <gtest/gtest.h>

// What the calls of the crash handler answer in a process without one.

namespace {

TEST(CreateDump, WithoutHandlerIsRefused) {
    EXPECT_FALSE(ZBase::CreateDump());
}

TEST(SetCrashAttr, RefusesNull) {
    EXPECT_FALSE(ZBase::SetCrashAttr(nullptr, "x", true));
    EXPECT_FALSE(ZBase::SetCrashAttr("x", nullptr, true));
    EXPECT_FALSE(ZBase::SetCrashAttr(nullptr, nullptr, false));
}

TEST(SetCrashAttr, OverwritesOnlyWhenTold) {
    EXPECT_TRUE(ZBase::SetCrashAttr("k", "1", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("k", "1", false));
    EXPECT_TRUE(ZBase::SetCrashAttr("k", "2", true));
    EXPECT_TRUE(ZBase::SetCrashAttr("K", "1", false));
    EXPECT_TRUE(ZBase::SetCrashAttr("", "", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("", "", false));
}

TEST(SetCrashAttr, KeysThatDifferBeyondAsciiOnlyAreOne) {
    EXPECT_TRUE(ZBase::SetCrashAttr("\xE9", "1", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("?", "1", false));
}

TEST(InstallCrashStack, MayBeCalledAgain) {
    EXPECT_TRUE(ZBase::InstallCrashStack());
    EXPECT_TRUE(ZBase::InstallCrashStack());
}

}  // namespace
