#include <Base/ZBase.h>

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/injection/CrashPlace.h"
#include "tests/injection/Operation.h"
#include "tests/injection/Texts.h"

namespace test {

namespace {

using namespace ZBase::Literals;
namespace fs = std::filesystem;

constexpr const char* kGuid = CrashPlace::kGuids[0];
constexpr const char* kYounger = CrashPlace::kGuids[1];

void ReadsAConfiguration(Trial& trial) {
    const CrashPlace place;
    const std::string path = place.Config();
    ZBase::CrashConfigTable settings;
    ZBase::CrashConfigTable keys;
    trial([&] { EXPECT_TRUE(Is(ZBase::FindCrashConfig().c_str(), path.c_str())); });
    bool isRead = false;
    trial([&] { isRead = ZBase::ReadCrashConfig(path.c_str(), settings, keys); });
    EXPECT_TRUE(isRead || !trial.IsUntouched());
    if (trial.IsUntouched()) {
        EXPECT_EQ(settings.size(), 5u);
    }
    static const ZBase::WideString most("max_dumps"_w);
    static const ZBase::WideString number("17"_w);
    static const ZBase::WideString yes("true"_w);
    static const std::string line = "[Config]";
    trial([&] {
        ZBase::JudgeCrashSettings(settings);
        EXPECT_TRUE(ZBase::IsCrashSettingTrue(yes));
        unsigned int value = 0;
        EXPECT_TRUE(ZBase::FindCrashNumber(most)->Read(number, value));
        EXPECT_EQ(value, 17u);
        EXPECT_EQ(ZBase::CrashNumberOf(settings, most), 50u);
        ZBase::CrashConfigReader reader;
        ZBase::WideString key;
        ZBase::WideString text;
        EXPECT_EQ(reader.Read(line, key, text), ZBase::ECrashConfigLine::eConfigHeader);
    });
}

void LooksAfterDumps(Trial& trial) {
    const CrashPlace place;
    place.LeaveDumps();
    const std::string directory = place.Dumps();
    const ZBase::CrashConfigTable settings{{"max_dumps"_w, "1"_w}};
    unsigned int removed = 0;
    bool isDone = false;
    trial([&] {
        ZBase::CrashStore store(directory, settings);
        EXPECT_TRUE(store.BecomeSender() || HasFailed());
        EXPECT_TRUE(store.HasUnsent() || HasFailed());
        const std::vector<std::string> dumps = store.Dumps();
        for (const std::string& dump : dumps) EXPECT_FALSE(store.IsSent(dump));
        removed = store.Trim();
        isDone = true;
    });
    if (isDone && trial.IsUntouched()) {
        EXPECT_EQ(removed, 1u);
    }
    // Whatever failed, a dump is there with what belongs to it, or has gone with it.
    const ZBase::CrashStore store(directory, {});
    const std::vector<std::string> left = store.Dumps();
    EXPECT_GE(left.size(), 1u);
    for (const std::string& dump : left)
        EXPECT_TRUE(fs::exists((fs::path(directory) / dump).replace_extension(".attachments") / "log"))
            << dump;
}

void ClaimsADump(Trial& trial) {
    const CrashPlace place;
    place.LeaveDumps();
    const std::string path = place.Dump(kGuid);
    bool isMarked = false;
    trial([&] {
        ZBase::ClaimedDump dump;
        if (dump.Claim(path)) isMarked = dump.MarkSent();
    });
    EXPECT_TRUE(isMarked || !trial.IsUntouched());
    // It has its name back, and others can have it.
    EXPECT_TRUE(fs::exists(path) || !trial.IsUntouched());
    ZBase::ClaimedDump again;
    EXPECT_TRUE(again.Claim(path) || again.Claim(place.Dumps() + "/" + kGuid + ".sending.dmp"));
    const std::string younger = place.Dump(kYounger);
    bool isGone = false;
    trial([&] {
        ZBase::ClaimedDump dump;
        if (dump.Claim(younger)) isGone = dump.Remove();
    });
    EXPECT_TRUE(isGone || !trial.IsUntouched());
    if (isGone) {
        EXPECT_FALSE(fs::exists(younger));
    }
}

void KeepsNotes(Trial& trial) {
    trial([] { EXPECT_TRUE(ZBase::AddCrashNote("a note for the case of a crash")); });
}

void SetsKeys(Trial& trial) {
    static unsigned int sNumber = 0;
    const std::string key = "a crash key with a long name, number " + std::to_string(sNumber++);
    bool isSet = false;
    trial([&] { isSet = ZBase::SetCrashAttr(key.c_str(), "a value that takes memory of its own", false); });
    EXPECT_TRUE(isSet || !trial.IsUntouched());
    // A key that was not set can be set.
    if (!isSet) {
        EXPECT_TRUE(ZBase::SetCrashAttr(key.c_str(), "a value that takes memory of its own", false)) << key;
    }
}

void Installs(Trial& trial) {
    const CrashPlace place;
    bool isInstalled = false;
    trial([&] { isInstalled = ZBase::InstallCrashHandler(); });
    EXPECT_TRUE(isInstalled || !trial.IsUntouched());
    trial([&] {
        ZBase::SetCrashAttr("a crash key with a long name", "a value that takes memory of its own", true);
    });
}

void InstallsAStack(Trial& trial) {
    trial([] { EXPECT_TRUE(ZBase::InstallCrashStack() || HasFailed()); });
}

void DumpsOnDemand(Trial& trial) {
    const CrashPlace place;
    EXPECT_TRUE(ZBase::InstallCrashHandler());
    bool isWritten = false;
    trial([&] { isWritten = ZBase::CreateDump(); });
    // The dump is written by a copy of the process, where it may fail as well.
    EXPECT_TRUE(isWritten || MayFail() || !trial.IsUntouched());
}

void SendsAReport(Trial& trial) {
    const CrashPlace place;
    const std::string file = place.Config();
    const ZBase::WideString path(file.begin(), file.end());
    const ZBase::WideString checkpoint = path + ZBase::WideString(".checkpoint"_w);
    // Refused before libcurl is brought in, which is another's and is not what fails here.
    const ZBase::WideString server("ftp://127.0.0.1:9/dev"_w);
    trial([&] {
        ZBase::CrashReportSender sender(checkpoint);
        ZBase::WideString code;
        EXPECT_EQ(sender.SendCrashReport(server, {{"product"_w, "server"_w}}, {{"file"_w, path}}, &code),
                  ZBase::RESULT_FAILED);
    });
}

}  // namespace

std::vector<Operation> CrashOperations() {
    return {
        {"reads a configuration",
         {"ZBase::FindCrashConfig", "ZBase::ReadCrashConfig", "ZBase::CrashConfigReader::Read",
          "ZBase::JudgeCrashSettings", "ZBase::IsCrashSettingTrue", "ZBase::FindCrashNumber",
          "ZBase::CrashNumberOf", "ZBase::CrashNumber::Read"},
         kReturns | kBadAlloc,
         ReadsAConfiguration},
        {"looks after dumps", {"ZBase::CrashStore::*"}, kReturns | kBadAlloc, LooksAfterDumps},
        {"claims a dump", {"ZBase::ClaimedDump::*"}, kReturns | kBadAlloc, ClaimsADump},
        {"keeps notes", {"ZBase::AddCrashNote"}, kReturns, KeepsNotes},
        {"sets crash keys", {"ZBase::SetCrashAttr"}, kReturns | kBadAlloc, SetsKeys, EWhere::eInChildren},
        {"installs the crash handler",
         {"ZBase::InstallCrashHandler"},
         kReturns | kBadAlloc,
         Installs,
         EWhere::eInChildren},
        // At the first time the C library ends a process that has no memory to note the end of a thread's
        // object.
        {"installs a crash stack",
         {"ZBase::InstallCrashStack"},
         kReturns,
         InstallsAStack,
         EWhere::eInOneProcess},
        {"dumps on demand", {"ZBase::CreateDump"}, kReturns, DumpsOnDemand, EWhere::eInChildren},
        {"sends a crash report",
         {"ZBase::CrashReportSender::*"},
         kReturns | kBadAlloc,
         SendsAReport,
         EWhere::eInOneProcess},
    };
}

}  // namespace test
