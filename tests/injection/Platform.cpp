#include <Base/ZBase.h>

#include <TestPlaces.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/injection/Operation.h"
#include "tests/injection/Texts.h"

class ZBase::AppGlobalEvent {};

namespace test {

namespace {

using namespace ZBase::Literals;

void TellsOfTheHost(Trial& trial) {
    trial([] {
        ZBase::GetComputerName();
        ZBase::GetComputerFullName();
        EXPECT_GE(ZBase::GetNumberOfSystemProcessors(), HasFailed() ? 0 : 1);
        EXPECT_GE(ZBase::GetUsableProcessors(), 1u);
        EXPECT_TRUE(ZBase::GetUsableMemory() > 1u << 20 || HasFailed());
    });
    trial([] { ZBase::GetUniqueMachineID(); });
}

void TellsTheLogin(Trial& trial) {
    trial([] { EXPECT_GT(ZBase::GetCurrentLogin().GetLength(), 1u); });
}

void ResolvesNames(Trial& trial) {
    static const ZBase::WideString address("127.0.0.1"_w);
    static const ZBase::WideString name("localhost"_w);
    static const ZBase::WideString url("http://localhost:80/some/where/else"_w);
    trial([] { EXPECT_GT(ZBase::IPAddress2MachineName(address).GetLength(), 1u); });
    trial([] { EXPECT_GT(ZBase::MachineName2IPAddress(name).GetLength(), 1u); });
    trial([] {
        ZBase::WideString result;
        const int failed = ZBase::MachineName2IPv4Address(name, result);
        EXPECT_TRUE(Is(result.c_str(), "127.0.0.1") || (HasFailed() && result == name)) << failed;
    });
    trial([] {
        ZBase::WideString result;
        ZBase::ConvertServerNameURL2IpAddrURL(url, result);
        EXPECT_GT(result.size(), 10u);
    });
    trial([] { EXPECT_TRUE(ZBase::IsValidIPAddress("127.0.0.1")); });
}

void TellsOfProcesses(Trial& trial) {
    trial([] { EXPECT_GT(ZBase::GetCurrentProcessName().GetLength() + (HasFailed() ? 2 : 0), 1u); });
    trial([] { EXPECT_TRUE(ZBase::IsProcessAlive(static_cast<std::uint64_t>(getpid())) || HasFailed()); });
    trial([] { ZBase::PauseCurrentProcess(); });
}

void TellsPrivateBytes(Trial& trial) {
    trial([] { EXPECT_TRUE(ZBase::GetPrivateBytes() != 0 || HasFailed()); });
}

void TellsTheNameOfAProcess(Trial& trial) {
    trial([] {
        EXPECT_GT(ZBase::GetProcessName(static_cast<unsigned int>(getpid())).GetLength(),
                  HasFailed() ? 0u : 1u);
    });
}

void TellsAModule(Trial& trial) {
    trial([] {
        EXPECT_GT(ZBase::GetModuleFileNameByAddressWithinModule(reinterpret_cast<const void*>(&TellsAModule))
                      .GetLength(),
                  1u);
    });
    trial([] {
        try {
            ZBase::GetModuleFileNameByAddressWithinModule(nullptr);
            ADD_FAILURE();
        } catch (const ZBase::Message& failure) {
            EXPECT_EQ(failure.GetID(), -1);
        }
    });
}

void LoadsAComponent(Trial& trial) {
    static const ZBase::ReturnWString path =
        ZBase::UTF8ToWideChar(ZBASE_COMPONENTS_DIR "/Component_64.so", false);
    trial([] {
        const auto library = ZBase::LoadSharedLibrary(path.c_str());
        const auto again = ZBase::Load3rdPartySharedLibrary(path.c_str());
        EXPECT_NE(library->GetFunctionAddress("AddOne"_w), nullptr);
        library->ZENTInitialize();
        EXPECT_GT(again->GetFilePath().GetLength(), 5u);
    });
    trial([] {
        const auto library = ZBase::LoadSharedLibrary(path.c_str());
        ZBase::Message message;
        EXPECT_EQ(library->GetFunctionAddressOrNULL("Nothing"_w, &message), nullptr);
    });
}

void MissesAComponent(Trial& trial) {
    trial([] {
        try {
            ZBase::LoadSharedLibrary("/nowhere/at/all/is/such/a/component"_w);
            ADD_FAILURE();
        } catch (const ZBase::Message& failure) {
            EXPECT_TRUE(failure.GetDomain() == 300 || HasFailed());
        }
    });
}

void TakesTime(Trial& trial) {
    trial([] {
        ZBase::Timer timer;
        timer.GetAgeInMicroseconds();
        timer.GetAgeInMilliseconds();
        timer.GetAgeInSeconds();
        timer.ResetTimer();
        ZBase::TotalTimer total;
        {
            ZBase::TotalTimer::Timer one(total);
            ZBase::TotalTimer::Timer stopped(total);
            stopped.Stop();
        }
        EXPECT_EQ(total.GetIncrementCount(), 2u);
        total.GetTotalInMicroseconds();
        total.GetTotalInMilliseconds();
        total.GetTotalInSeconds();
        total.GetAverageInMicroseconds();
        total.GetAverageInMilliseconds();
        total.GetAverageInSeconds();
    });
    trial([] {
        ZBase::TotalTimer total;
        {
            ZBase::TotalTimer::Timer2 one(total, total);
            ZBase::TotalTimer::Timer3 other(total, total, total);
        }
        ZBase::TotalTimer::Timer2 two(total, total);
        two.Stop();
        ZBase::TotalTimer::Timer3 three(total, total, total);
        three.Stop();
        EXPECT_EQ(total.GetIncrementCount(), 10u);
    });
}

void TellsADebugger(Trial& trial) {
    trial([] {
        ZBase::OutputDebugString("a text for whoever listens, and longer than what a string keeps in itself");
        ZBase::OutputDebugString(
            "a text for whoever listens, and longer than what a string keeps in itself"_w);
    });
}

void DrawsANumber(Trial& trial) {
    trial([] { EXPECT_LE(ZBase::GetPseudoRandomInt32(6), 6u); });
}

void SwitchesFeatures(Trial& trial) {
    trial([] {
        ZBase::SetFeatureEnabled(
            "Base/AnInjectedFeatureWithANameThatIsLongEnoughForABlockOfItsOwnInTheTable"_w, false);
    });
    trial([] { ZBase::NotifyFeatureFlagMgrInitialized(); });
    if (ZBase::IsFeatureFlagManagerInitialized()) {
        bool isOn = false;
        const bool done = trial([&] {
            isOn = ZBase::IsFeatureEnabled(
                "Base/AnInjectedFeatureWithANameThatIsLongEnoughForABlockOfItsOwnInTheTable"_w);
        });
        if (done && trial.IsUntouched()) {
            EXPECT_FALSE(isOn);
        }
    }
}

class Listener final : public ZBase::AppGlobalEventCallback {
public:
    void OnEvent(ZBase::AppGlobalEvent&) override { ++told; }
    int told = 0;
};

void ReportsEvents(Trial& trial) {
    static Listener sListener;
    static bool sIsRegistered = false;
    trial([] {
        try {
            ZBase::AppGlobalEventReporter::RegisterCallback(&sListener);
            EXPECT_FALSE(sIsRegistered);
        } catch (const ZBase::AppGlobalEventReporterException&) {
            EXPECT_TRUE(sIsRegistered);
        }
    });
    sIsRegistered = true;
    const int before = sListener.told;
    trial([] {
        ZBase::AppGlobalEvent event;
        ZBase::AppGlobalEventReporter::Report(event);
        EXPECT_EQ(ZBase::AppGlobalEventReporter::GetCallback(), nullptr);
    });
    EXPECT_EQ(sListener.told, before + 1);
}

}  // namespace

std::vector<Operation> PlatformOperations() {
    return {
        {"tells of the host",
         {"ZBase::GetComputerName", "ZBase::GetComputerFullName", "ZBase::GetNumberOfSystemProcessors",
          "ZBase::GetUniqueMachineID", "ZBase::GetUsableProcessors", "ZBase::GetUsableMemory"},
         kReturns | kBadAlloc,
         TellsOfTheHost,
         EWhere::eInOneProcess},
        {"tells the login",
         {"ZBase::GetCurrentLogin"},
         kReturns | kBadAlloc | kMessage,
         TellsTheLogin,
         EWhere::eInOneProcess},
        {"resolves names",
         {"ZBase::IPAddress2MachineName", "ZBase::MachineName2IPAddress", "ZBase::MachineName2IPv4Address",
          "ZBase::ConvertServerNameURL2IpAddrURL", "ZBase::IsValidIPAddress"},
         kReturns | kBadAlloc,
         ResolvesNames,
         EWhere::eInOneProcess},
        {"tells of processes",
         {"ZBase::GetCurrentProcessName", "ZBase::IsProcessAlive", "ZBase::PauseCurrentProcess"},
         kReturns | kBadAlloc,
         TellsOfProcesses},
        {"tells private bytes", {"ZBase::GetPrivateBytes"}, kReturns, TellsPrivateBytes},
        // It keeps a handle.
        {"tells the name of a process",
         {"ZBase::GetProcessName"},
         kReturns | kBadAlloc,
         TellsTheNameOfAProcess,
         EWhere::eInChildren},
        {"tells a module",
         {"ZBase::GetModuleFileNameByAddressWithinModule"},
         kReturns | kBadAlloc | kMessage,
         TellsAModule},
        {"loads a component",
         {"ZBase::LoadSharedLibrary", "ZBase::Load3rdPartySharedLibrary"},
         kReturns | kBadAlloc | kMessage,
         LoadsAComponent},
        {"misses a component", {}, kReturns | kBadAlloc, MissesAComponent},
        {"takes time",
         {"ZBase::Timer::*", "ZBase::TotalTimer::*"},
         kReturns | kMessage,
         TakesTime,
         EWhere::eBoth,
         "a timer whose destructor finds no clock after its Stop has thrown ends the process"},
        {"tells a debugger", {"ZBase::OutputDebugString"}, kReturns, TellsADebugger},
        {"draws a number", {"ZBase::GetPseudoRandomInt32"}, kReturns, DrawsANumber},
        {"switches features",
         {"ZBase::SetFeatureEnabled", "ZBase::NotifyFeatureFlagMgrInitialized", "ZBase::IsFeatureEnabled",
          "ZBase::IsFeatureFlagManagerInitialized", "ZBase::FeatureFlagMgr::*"},
         kReturns | kBadAlloc,
         SwitchesFeatures,
         EWhere::eInChildren},
        {"reports events",
         {"ZBase::AppGlobalEventReporter::*"},
         kReturns,
         ReportsEvents,
         EWhere::eInChildren},
    };
}

}  // namespace test
