#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <thread>

// The results of the crash handler's calls in a process without one.

namespace {

TEST(CrashHandlerDump, WithoutHandlerIsRefused) {
    EXPECT_FALSE(ZBase::CreateDump());
}

TEST(CrashHandlerKeys, RefusesNull) {
    EXPECT_FALSE(ZBase::SetCrashAttr(nullptr, "x", true));
    EXPECT_FALSE(ZBase::SetCrashAttr("x", nullptr, true));
    EXPECT_FALSE(ZBase::SetCrashAttr(nullptr, nullptr, false));
}

TEST(CrashHandlerKeys, OverwritesOnlyWhenTold) {
    EXPECT_TRUE(ZBase::SetCrashAttr("k", "1", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("k", "1", false));
    EXPECT_TRUE(ZBase::SetCrashAttr("k", "2", true));
    EXPECT_TRUE(ZBase::SetCrashAttr("K", "1", false));
    EXPECT_TRUE(ZBase::SetCrashAttr("", "", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("", "", false));
}

TEST(CrashHandlerKeys, KeysThatDifferBeyondAsciiOnlyAreOne) {
    EXPECT_TRUE(ZBase::SetCrashAttr("\xE9", "1", false));
    EXPECT_FALSE(ZBase::SetCrashAttr("?", "1", false));
}

TEST(CrashHandlerStack, MayBeCalledAgain) {
    EXPECT_TRUE(ZBase::InstallCrashStack());
    EXPECT_TRUE(ZBase::InstallCrashStack());
}

TEST(CrashHandlerStack, GoesWithItsThread) {
    const auto mappings = [] {
        std::ifstream file("/proc/self/maps");
        return std::count(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>(), '\n');
    };
    const auto runThreads = [] {
        for (int i = 0; i != 100; ++i) std::thread([] { EXPECT_TRUE(ZBase::InstallCrashStack()); }).join();
    };
    runThreads();
    const auto before = mappings();
    runThreads();
    EXPECT_LT(mappings(), before + 50);
}

}  // namespace
