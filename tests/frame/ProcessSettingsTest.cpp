#include <Base/ZBase.h>

#include <gtest/gtest.h>

#include <unistd.h>
#include <chrono>
#include <clocale>
#include <set>
#include <string>
#include <thread>

#include "tests/support/System.h"

namespace {

TEST(ProcessSettingsContainerPath, IsEmptyAndNotNullUntilItIsSet) {
    const ZBase::ReturnString path = ZBase::GetContainerPath();
    ASSERT_NE(path.c_str(), nullptr);
    EXPECT_STREQ(path.c_str(), "");
}

TEST(ProcessSettingsContainerPath, IsCopiedInAndOut) {
    std::string text = "/opt/server/" + std::string(1000, 'x');
    ZBase::SetContainerPath(text.c_str());
    const std::string expected = text;
    text[0] = '?';
    EXPECT_EQ(ZBase::GetContainerPath().c_str(), expected);
    EXPECT_NE(ZBase::GetContainerPath().c_str(), ZBase::GetContainerPath().c_str());
    ZBase::SetContainerPath("");
    EXPECT_STREQ(ZBase::GetContainerPath().c_str(), "");
}

TEST(ProcessSettingsLocale, IsWhatTheProcessIsIn) {
    EXPECT_STREQ(ZBase::GetProcessLocale(), std::setlocale(LC_ALL, nullptr));
}

TEST(ProcessSettingsPageSize, IsTheSystemsOwn) {
    std::size_t size = 0;
    EXPECT_TRUE(ZBase::GetSymPageSize(&size));
    EXPECT_EQ(size, test::PageSize());
}

TEST(ProcessSettingsPageSize, IsToldToNobodyAsWell) {
    EXPECT_TRUE(ZBase::GetSymPageSize(nullptr));
}

TEST(ProcessSettingsIdentifiers, AreTheSystemsOwn) {
    EXPECT_EQ(ZBase::GetCurrentProcessID(), static_cast<unsigned int>(getpid()));
    EXPECT_EQ(ZBase::GetCurrentThreadID(), test::ThreadId());
    EXPECT_EQ(ZBase::GetCurrentThreadIDNative(), ZBase::GetCurrentThreadID());
}

TEST(ProcessSettingsIdentifiers, DifferFromThreadToThread) {
    unsigned long other = 0;
    std::thread([&other] { other = ZBase::GetCurrentThreadID(); }).join();
    EXPECT_NE(other, 0u);
    EXPECT_NE(other, ZBase::GetCurrentThreadID());
}

TEST(ProcessSettingsSleep, LastsAtLeastAsLongAsTold) {
    const auto start = std::chrono::steady_clock::now();
    ZBase::Sleep(20);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
    ZBase::Sleep(0);
    ZBase::YieldToAnotherThread();
}

}  // namespace
