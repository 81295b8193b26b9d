#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/WideText.h"

namespace {

using test::Wide;

std::u16string Units(const wchar_t* text) {
    return reinterpret_cast<const char16_t*>(text);
}

TEST(Host, NamesAreTheSystems) {
    wchar_t name[256];
    DWORD size = 256;
    ASSERT_NE(GetComputerNameExW(ComputerNameDnsHostname, name, &size), 0);
    EXPECT_EQ(Wide(ZBase::GetComputerName().c_str()), Units(name));
    size = 256;
    ASSERT_NE(::GetComputerNameW(name, &size), 0);
    const std::u16string full = Wide(ZBase::GetComputerFullName().c_str());
    EXPECT_EQ(full.substr(0, full.find(u'.')), Units(name));
    EXPECT_NE(full.back(), u'.');
}

TEST(Host, LoginIsTheUserOfTheProcess) {
    wchar_t user[256];
    DWORD size = 256;
    ASSERT_NE(GetUserNameW(user, &size), 0);
    const std::u16string login = Wide(ZBase::GetCurrentLogin().c_str());
    ASSERT_NE(login.find(u'\\'), std::u16string::npos);
    EXPECT_EQ(login.substr(login.find(u'\\') + 1), Units(user));
}

TEST(Host, HasAProcessorAndMemory) {
    EXPECT_GE(ZBase::GetNumberOfSystemProcessors(), 1);
    EXPECT_GE(ZBase::GetUsableProcessors(), 1u);
    EXPECT_GT(ZBase::GetUsableMemory(), std::uint64_t{64} << 20);
}

TEST(HostProcess, ItselfIsAliveAndHasItsName) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(nullptr, path, MAX_PATH);
    const std::u16string whole = Units(path);
    EXPECT_TRUE(ZBase::IsProcessAlive(GetCurrentProcessId()));
    EXPECT_EQ(Wide(ZBase::GetProcessName(GetCurrentProcessId()).c_str()),
              whole.substr(whole.rfind(u'\\') + 1));
    EXPECT_EQ(Wide(ZBase::GetCurrentProcessName().c_str()), Units(GetCommandLineW()));
    EXPECT_EQ(ZBase::GetCurrentProcessID(), GetCurrentProcessId());
    EXPECT_EQ(ZBase::GetCurrentThreadID(), GetCurrentThreadId());
}

TEST(HostProcess, ThatHasEndedIsNotAlive) {
    wchar_t command[] = L"cmd /c exit 3";
    STARTUPINFOW start{};
    start.cb = sizeof start;
    PROCESS_INFORMATION child{};
    ASSERT_NE(CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, CREATE_SUSPENDED, nullptr, nullptr,
                             &start, &child),
              0);
    EXPECT_TRUE(ZBase::IsProcessAlive(child.dwProcessId));
    ResumeThread(child.hThread);
    WaitForSingleObject(child.hProcess, INFINITE);
    EXPECT_FALSE(ZBase::IsProcessAlive(child.dwProcessId));  // the system still knows the id
    CloseHandle(child.hThread);
    CloseHandle(child.hProcess);
}

TEST(HostProcess, ThatNobodyHasIsNotAlive) {
    EXPECT_FALSE(ZBase::IsProcessAlive(0xFFFFFFF0));
}

TEST(HostProcess, ModuleOfAnAddressIsFound) {
    wchar_t path[MAX_PATH];
    GetModuleFileNameW(GetModuleHandleW(L"kernel32.dll"), path, MAX_PATH);
    const auto* const function =
        reinterpret_cast<const void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "Sleep"));
    EXPECT_EQ(Wide(ZBase::GetModuleFileNameByAddressWithinModule(function).c_str()), Units(path));
    int local = 0;
    EXPECT_THROW(ZBase::GetModuleFileNameByAddressWithinModule(&local), ZBase::Message);
    EXPECT_THROW(ZBase::GetModuleFileNameByAddressWithinModule(nullptr), ZBase::Message);
}

TEST(HostProcess, EnvironmentHasTheVariable) {
    using namespace ZBase::Literals;
    const auto* const name = u"ZBASE_TEST_VARIABLE"_w;
    const auto* const value = u"caf\u00E9 \u4E2D"_w;
    ZBase::SetEnvironmentVariable(name, value);
    EXPECT_EQ(Wide(ZBase::GetEnvironmentVariableOrNULL(name).c_str()), Wide(value));
}

}  // namespace
