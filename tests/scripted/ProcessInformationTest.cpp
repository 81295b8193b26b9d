#include <Base/platform/ProcessInformation.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/scripted/ScriptedFailure.h"
#include "tests/scripted/ScriptedModules.h"
#include "tests/scripted/ScriptedProcesses.h"

namespace {

using test::gModules;
using test::gProcesses;
using test::Wide;
using ZBase::os::EMemoryCounters;
using ZBase::os::EWaitResult;

class ProcessInformationOverScript : public testing::Test {
protected:
    ProcessInformationOverScript() {
        gProcesses = {};
        gModules = {};
    }
};

TEST_F(ProcessInformationOverScript, NameIsWhatFollowsTheLastSeparator) {
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"program.bin");
    EXPECT_EQ(gProcesses.askedId, 42u);
    EXPECT_EQ(gProcesses.pathCapacity, 1024u);
    gProcesses.imagePath = "plain";
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"plain");
    gProcesses.imagePath = "/ends/in/";
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"");
    gProcesses.imagePath = "/dir/back\\slash";
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"back\\slash");
    gProcesses.imagePath = "\\Device\\HarddiskVolume1\\program.exe";
    gProcesses.separator = '\\';
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"program.exe");
}

TEST_F(ProcessInformationOverScript, NameOfAProcessThatTellsNothingIsEmpty) {
    gProcesses.opens = false;
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"");
    gProcesses.opens = true;
    gProcesses.imagePath = nullptr;
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"");
    const std::string path(1024, 'x');
    gProcesses.imagePath = path.c_str();
    EXPECT_EQ(Wide(ZBase::GetProcessName(42).c_str()), u"");
}

TEST_F(ProcessInformationOverScript, EachNameKeepsAHandleOfItsProcess) {
    ZBase::GetProcessName(42);
    ZBase::GetProcessName(42);
    EXPECT_EQ(gProcesses.openProcesses, 2);
}

TEST_F(ProcessInformationOverScript, IsAliveExactlyIfTheWaitTimesOut) {
    EXPECT_TRUE(ZBase::IsProcessAlive(42));
    EXPECT_EQ(gProcesses.waited, 0u);
    gProcesses.waitResult = EWaitResult::Ended;
    EXPECT_FALSE(ZBase::IsProcessAlive(42));
    gProcesses.waitResult = EWaitResult::Failed;
    EXPECT_FALSE(ZBase::IsProcessAlive(42));
    EXPECT_EQ(gProcesses.openProcesses, 0);
}

TEST_F(ProcessInformationOverScript, ThatCannotBeOpenedIsNotAlive) {
    gProcesses.opens = false;
    EXPECT_FALSE(ZBase::IsProcessAlive(42));
    EXPECT_EQ(gProcesses.openProcesses, 0);
}

TEST_F(ProcessInformationOverScript, LowHalfOfTheIdCounts) {
    ZBase::IsProcessAlive(0xFEDCBA9876543210u);
    EXPECT_EQ(gProcesses.askedId, 0x76543210u);
}

// The source of the figures is looked up once in a process, so these run in processes of their own.
class ProcessInformationPrivateBytesOverScriptDeathTest : public ProcessInformationOverScript {
protected:
    ProcessInformationPrivateBytesOverScriptDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    // Everything that is printed, and the results of two calls.
    static std::string TwoCalls() {
        testing::internal::CaptureStdout();
        const unsigned long first = ZBase::GetPrivateBytes();
        const unsigned long second = ZBase::GetPrivateBytes();
        return testing::internal::GetCapturedStdout() + std::to_string(first) + ' ' + std::to_string(second);
    }
    static void Conclude() { std::_Exit(testing::Test::HasFailure() ? 1 : 0); }
};

TEST_F(ProcessInformationPrivateBytesOverScriptDeathTest, AreCutTo32BitsAndTheirSourceIsFoundOnce) {
    const auto body = [] {
        gProcesses.committed = 0x100000005;
        EXPECT_EQ(TwoCalls(), "5 5");
        gProcesses.committed = 0xFFFFFFFF;
        EXPECT_EQ(ZBase::GetPrivateBytes(), 0xFFFFFFFFu);
        EXPECT_EQ(gProcesses.countersOpened, 1);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessInformationPrivateBytesOverScriptDeathTest,
       SayOnceThatTheirModuleIsMissingAndEachTimeThatTheyFail) {
    const auto body = [] {
        gProcesses.counters = EMemoryCounters::NoModule;
        EXPECT_EQ(TwoCalls(),
                  "\n psapi.dll not loaded...Memory Surge Monitor will not work"
                  "GetProcessMemoryInfo failed\nGetProcessMemoryInfo failed\n0 0");
        EXPECT_EQ(gProcesses.committedAsked, 0);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessInformationPrivateBytesOverScriptDeathTest,
       SayOnceThatTheirFunctionIsMissingAndEachTimeThatTheyFail) {
    const auto body = [] {
        gProcesses.counters = EMemoryCounters::NoFunction;
        EXPECT_EQ(TwoCalls(),
                  "GetProcAddress of GetProcessMemoryInfo failed.\n"
                  "GetProcessMemoryInfo failed\nGetProcessMemoryInfo failed\n0 0");
        EXPECT_EQ(gProcesses.committedAsked, 0);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

TEST_F(ProcessInformationPrivateBytesOverScriptDeathTest, SayEachTimeThatTheSystemRefuses) {
    const auto body = [] {
        gProcesses.committed = 7;
        gProcesses.committedFails = true;
        EXPECT_EQ(TwoCalls(), "GetProcessMemoryInfo failed\nGetProcessMemoryInfo failed\n0 0");
        gProcesses.committedFails = false;
        EXPECT_EQ(ZBase::GetPrivateBytes(), 7u);
        Conclude();
    };
    EXPECT_EXIT(body(), testing::ExitedWithCode(0), "");
}

class ProcessInformationModuleNameOverScript : public ProcessInformationOverScript {
protected:
    ProcessInformationModuleNameOverScript() {
        test::SetSystemError(126, "No module.");
        gModules.allocationBase = &gModules;
    }
    static void Ask() { ZBase::GetModuleFileNameByAddressWithinModule(&gModules); }
};

TEST_F(ProcessInformationModuleNameOverScript, IsThePath) {
    EXPECT_EQ(Wide(ZBase::GetModuleFileNameByAddressWithinModule(&gModules).c_str()), u"/lib/module.so");
    EXPECT_EQ(gModules.pathCapacity, 260u);
}

TEST_F(ProcessInformationModuleNameOverScript, FailsForAnImpossibleAddress) {
    gModules.addressIsPossible = false;
    test::ExpectFailure(Ask, -1, u"::VirtualQuery() failed.");
}

TEST_F(ProcessInformationModuleNameOverScript, FailsWhereNothingIs) {
    gModules.allocationBase = nullptr;
    test::ExpectFailure(Ask, -1, u"::VirtualQuery() returned NULL AllocationBase.");
}

TEST_F(ProcessInformationModuleNameOverScript, FailsWhereNoModuleIs) {
    gModules.modulePath = nullptr;
    test::ExpectFailure(Ask, 126,
                        u"::GetModuleFileNameW() failed.\nSystem Error 0x0000007E (126): --- No module.");
}

}  // namespace
