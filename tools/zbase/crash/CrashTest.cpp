#include "CrashCommands.h"
#include "CrashSettings.h"
#include "LocalReceiver.h"
#include "tools/system/SecondProcess.h"
#include "tools/zbase/dumps/CrashDumps.h"
#include "tools/zbase/terminal/Console.h"

#include <Base/crash/CrashHandler.h>
#include <Base/crash/CrashStore.h>
#include <Base/crash/detail/CrashContract.h>
#include <Base/frame/Environment.h>

#include <fstream>
#include <memory>
#include <set>

namespace {

namespace fs = std::filesystem;
using namespace ZBase::Literals;

constexpr char kDumpOption[] = "--dump";

// What the second process does.
int DumpThisProcess() {
    ZBase::SetCrashAttr("zbase_crash_test", "1", true);
    return ZBase::InstallCrashHandler() && ZBase::CreateDump() ? 0 : 1;
}

// In a process of its own, so that this one keeps its handlers.
bool DumpInSecondProcess() {
    try {
        RunSecondProcess({"crash", "test", kDumpOption}, "");
        return true;
    } catch (const Failure&) {
        return false;
    }
}

// The directories in which this process may write a dump, and the GUIDs of the dumps there.
std::set<std::string> DumpNames(const CrashSettings& config) {
    std::set<std::string> names;
    for (const fs::path& place : {config.DumpDirectory(), fs::temp_directory_path()}) {
        for (const fs::path& dump : DumpsIn(place)) {
            const std::string name = dump.filename().string();
            names.insert((place / name.substr(0, name.find('.'))).string());
        }
    }
    return names;
}

// Dumps a process with the current configuration, and prints whether the report arrived.
int TestConfiguration() {
    const CrashSettings config = ReadCrashSettings("");
    const std::string obstacle = CrashObstacle(config);
    if (!obstacle.empty()) throw Failure(config.path + ": " + obstacle);
    const std::set<std::string> before = DumpNames(config);
    if (!DumpInSecondProcess())
        throw Failure("no dump could be written to " + config.DumpDirectory().string());
    const ZBase::WideString address = ZBase::detail::TextSetting<"ServerURL">(config.settings);
    const std::string server = Shown(Narrow(address.c_str()));
    for (const std::string& dump : DumpNames(config)) {
        const fs::path path = dump + ZBase::detail::kDumpEnding;
        const ZBase::CrashStore store(path.parent_path().string(), config.settings);
        if (before.contains(dump) || store.IsSent(path.filename().string())) continue;
        Print("The dump was written: " + Shown(path.string()) + "\nThe report did not arrive at " + server +
              ".\n");
        return 1;
    }
    Print("A dump was written, and its report arrived at " + server + ".\n");
    return 0;
}

// The same with a server, a configuration and a dump directory of its own.
int TestLocally() {
    const LocalReceiver receiver;
    const fs::path file = receiver.Directory() / "crash_report.ini";
    std::ofstream(file) << "[Config]\nenable=true\nServerURL=" << receiver.Address()
                        << "\nServerProdURL=" << receiver.Address()
                        << "\ndump_path=" << (receiver.Directory() / "crash_dumps").string()
                        << "\ndump_seconds=60\n[CrashKeys]\nproduct=zbase\n";
    ZBase::SetEnvironmentVariable("ZENT_CRASH_CONFIG_FILE"_w, Wide(file.string()).c_str());
    const int status = TestConfiguration();
    std::ifstream keys(receiver.Directory() / "1.keys");
    for (std::string line; std::getline(keys, line);) Print("  " + Shown(line) + "\n");
    return status;
}

int Test(bool isLocal, bool dumps) {
    NeedCrashReporting();
    if (dumps) return DumpThisProcess();
    return isLocal ? TestLocally() : TestConfiguration();
}

}  // namespace

void AddCrashTestCommand(Command& crash) {
    Command test = crash.AddCommand("test", "Dump a process and send the report");
    const auto isLocal = std::make_shared<bool>(false);
    test.AddFlag("--local", *isLocal, "Send it to a report server of its own, and show what arrived");
    const auto dumps = std::make_shared<bool>(false);
    test.AddFlag(kDumpOption, *dumps, "").Hidden();  // no option for people
    test.Runs([isLocal, dumps] { return Test(*isLocal, *dumps); });
}
